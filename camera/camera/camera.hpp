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
#include "camera/services/controls.hpp"
#include "common/text/json.hpp"

namespace camera {

/// The whole simulated camera: state, services, faults, and the verbs that people, scenarios and
/// the control interface use. Verbs throw CommandError, and change nothing, where a name is unknown
/// or a value makes no sense.
class Camera {
  public:
    /// Who wants to know what happens; either may be empty. Both may be called from within a
    /// service's callbacks, so they must not use verbs there and then.
    struct Observers {
        std::function<void(const CallRecord&)> called;  ///< a service was called
        std::function<void()> changed;                  ///< a value has changed
    };

    /// Builds the services, all down. `event` and `event_log` must outlive the camera; `lost` is
    /// called from the loop when the daemon ends a connection.
    Camera(sd_event& event, EventLog& event_log, const Configuration& configuration,
           std::function<void()> lost);
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    /// Brings all services up on the bus at `address`, but those of `without`, which are not
    /// there until they are started by order. With `activation`, a call to one of the others
    /// brings it up again when it is down, where `startable`, the bus names that the daemon can
    /// have started, holds its own. A service whose names belong to the machine leaves them to
    /// whoever has them, and tells that it does.
    /// @throws common::Failure (unavailable).
    void go_up(const std::string& address, const std::set<std::string>& without, bool activation,
               std::set<std::string> startable);
    /// Takes all services down, in reverse order.
    void go_down();

    void set_observers(Observers observers) { observers_ = std::move(observers); }

    /// `name` is one of `show()`, such as "temperature.main".
    void set(const std::string& name, const std::string& value);
    /// @throws common::Failure (unavailable) too, as `restart` and `activate`.
    void start(const std::string& service);
    void stop(const std::string& service);
    void restart(const std::string& service);
    /// What the bus daemon asks for when a service that is down is called.
    void activate(const std::string& service);
    void fail(const FaultRule& rule);
    /// `target` is "MEMBER" or "SERVICE.MEMBER".
    void clear_fault(const std::string& target);
    void press(const std::string& button);

    /// Where the services are, after `go_up`.
    [[nodiscard]] const std::string& address() const noexcept { return address_; }

    /// The same checks, without doing it.
    [[nodiscard]] common::Json check_value(const std::string& name, const std::string& value) const;
    /// What a value that can be seen would be, where `text` stands for it.
    [[nodiscard]] common::Json check_state(const std::string& name, const std::string& text) const;
    void check_service(const std::string& service) const { (void)service_named(service); }
    void check_fault(const FaultRule& rule) const;
    void check_fault_target(const std::string& target) const;
    /// Of a method that some service, or the named one, has.
    void check_method(const std::string& service, const std::string& member) const;

    /// A value as it is now.
    [[nodiscard]] common::Json value(const std::string& name) const;
    /// The whole state: "bus", "services" (each with "name", "state", "unique_name", "bus_names",
    /// "activatable", "registrations"), "values", "faults".
    [[nodiscard]] common::Json show() const;
    [[nodiscard]] const std::vector<std::unique_ptr<Service>>& services() const noexcept {
        return services_;
    }

  private:
    [[nodiscard]] Service& service_named(const std::string& name) const;
    /// The service that has a value.
    [[nodiscard]] Service& owner_of(const std::string& value) const;
    /// The kind of a member, or a refusal with the nearest name.
    [[nodiscard]] MemberKind kind_of(const std::string& service, const std::string& member) const;
    /// Adds the next service, made with these arguments.
    template <class Kind, class... Arguments>
    Kind& add(Arguments&&... arguments) {
        auto service = std::make_unique<Kind>(std::forward<Arguments>(arguments)..., surroundings_);
        Kind& added = *service;
        services_.push_back(std::move(service));
        return added;
    }
    void bring_up_at_first(Service& service);
    /// Whether a call would bring the service up.
    [[nodiscard]] bool is_activatable(const Service& service) const;
    void drop(const std::string& service);

    EventLog& event_log_;
    Observers observers_;
    FaultRules faults_;
    ServiceContext surroundings_;
    TemperatureModel temperature_;
    PowerModel power_;
    ParameterStore parameters_;
    std::vector<std::unique_ptr<Service>> services_;  // goes first: it refers to all of the above
    ControlsService* controls_;                       // one of them
    std::string address_;
    std::set<std::string> not_activatable_;  // services that refuse the daemon
    std::set<std::string> startable_;        // bus names that the daemon can have started
};

}  // namespace camera
