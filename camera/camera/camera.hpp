#pragma once

#include <systemd/sd-event.h>

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "camera/camera/configuration.hpp"
#include "camera/models/parameter_store.hpp"
#include "camera/models/power.hpp"
#include "camera/models/temperature.hpp"
#include "camera/service/event_log.hpp"
#include "camera/service/fault_rules.hpp"
#include "camera/service/service.hpp"
#include "camera/services/services.hpp"
#include "common/text/json.hpp"

namespace camera {

/// The whole simulated camera: state, services, faults, and the commands of people, scenarios and
/// the control interface. A command throws CommandError, and changes nothing, where a name is
/// unknown or a value is not accepted.
class Camera {
  public:
    /// Called when something happens; either may be empty. Both run within the callbacks of
    /// services, so they must not run commands at once.
    struct Observers {
        std::function<void(const CallRecord&)> called;  ///< a service is called
        std::function<void()> changed;                  ///< a value has changed
    };

    /// Which services are there.
    struct Presence {
        std::set<std::string> down;         ///< stay down until a command, or a call, starts them
        std::set<std::string> activatable;  ///< a call brings them up when they are down
    };

    /// Builds the services, all down. `event` and `event_log` must outlive the camera.
    /// @param lost called from the loop when the daemon ends a connection.
    Camera(sd_event& event, EventLog& event_log, const Configuration& configuration,
           std::function<void()> lost);
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    /// Brings the services up. A service whose names belong to the machine stays down where they
    /// have an owner, and logs that.
    /// @param address of the bus.
    /// @param presence which services come up.
    /// @param startable the bus names that the daemon can activate; a service with a name that is
    ///        not among them is not activatable.
    /// @throws common::Failure (unavailable).
    void go_up(const std::string& address, const Presence& presence,
               std::set<std::string> startable);
    /// Takes all services down, in reverse order.
    void go_down();

    void set_observers(Observers observers) { observers_ = std::move(observers); }

    /// Sets a value. @param name as in `show()`, such as "temperature.main".
    void set(const std::string& name, const std::string& text);
    /// @throws common::Failure (unavailable) too, as `restart` and `activate`.
    void start(const std::string& service);
    void stop(const std::string& service);
    void restart(const std::string& service);
    /// Starts a service for the bus daemon, which does so when a service that is down is called.
    void activate(const std::string& service);
    void fail(const FaultRule& rule);
    /// Removes fault rules. @param target "MEMBER" or "SERVICE.MEMBER".
    void clear_fault(const std::string& target);
    void press(const std::string& button);
    /// Has a service send a message of a scenario.
    void send(const ScriptedMessage& message);
    /// The calls that a scenario answers in place of the services.
    [[nodiscard]] ReplyScript& script() noexcept { return script_; }

    /// The address of the bus, after `go_up`.
    [[nodiscard]] const std::string& address() const noexcept { return address_; }

    // The checks of the commands, for a file that is read before anything runs.

    /// What `set` would set the value to.
    [[nodiscard]] common::Json check_value(const std::string& name, const std::string& text) const;
    /// The same for a value that may be read-only.
    [[nodiscard]] common::Json check_state(const std::string& name, const std::string& text) const;
    void check_service(const std::string& service) const { (void)service_named(service); }
    void check_fault(const FaultRule& rule) const;
    void check_fault_target(const std::string& target) const;
    /// Requires a method. @param service its service; empty: any service.
    void check_method(const std::string& service, const std::string& member) const;
    /// Requires the signal or, where it has a receiver, the outgoing call of a message.
    void check_message(const ScriptedMessage& message) const;

    /// A value now.
    [[nodiscard]] common::Json value(const std::string& name) const;
    /// The whole state: "bus", "services" (each with "name", "state", "unique_name", "bus_names",
    /// "activatable", "registrations"), "values", "faults".
    [[nodiscard]] common::Json show() const;
    [[nodiscard]] const std::vector<std::unique_ptr<Service>>& services() const noexcept {
        return services_;
    }

  private:
    [[nodiscard]] Service& service_named(const std::string& name) const;
    /// The service, or where none is named the first one with such a member.
    [[nodiscard]] Service& service_with(const std::string& service,
                                        const std::string& member) const;
    [[nodiscard]] Value value_named(const std::string& name) const;
    [[nodiscard]] Value settable_value(const std::string& name) const;
    /// The kind of a member. @throws CommandError with the nearest name.
    [[nodiscard]] MemberKind kind_of(const std::string& service, const std::string& member) const;
    void start_first_time(Service& service);
    /// Whether a call brings the service up.
    [[nodiscard]] bool is_activatable(const Service& service) const;
    void drop(const std::string& service);

    EventLog& event_log_;
    Observers observers_;
    FaultRules faults_;
    ReplyScript script_;
    ServiceContext context_;
    TemperatureModel temperature_;
    PowerModel power_;
    ParameterStore parameters_;
    std::vector<std::unique_ptr<Service>> services_;  // destroyed first: they refer to the above
    ButtonService* controls_;                         // one of them
    std::string address_;
    std::set<std::string> not_activatable_;  // services
    std::set<std::string> startable_;        // bus names that the daemon can activate
};

}  // namespace camera
