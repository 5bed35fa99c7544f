#pragma once

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <chrono>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "camera/bus_names.hpp"
#include "camera/connection.hpp"
#include "camera/fault_rules.hpp"
#include "camera/refusal.hpp"
#include "camera/story.hpp"
#include "camera/timers.hpp"
#include "camera/trampoline.hpp"
#include "common/bus.hpp"

namespace camera {

/// What a service has around it; all of it outlives the service.
struct Surroundings {
    sd_event& event;
    Story& story;
    FaultRules& faults;
    std::function<void(const CallRecord&)> called;         ///< a method call has arrived
    std::function<void(const std::string& service)> drop;  ///< a fault takes the service down
    std::function<void()> lost;                            ///< the daemon ended a connection
};

/// A value of the camera that can be set and seen.
struct Value {
    std::string name;  ///< within its service: "main"
    tool::Json value;
};

/// One D-Bus service of the camera platform, on a connection of its own, so that it can come, go
/// and restart as a process does. The object itself lives as long as the camera: what a restart
/// must not forget (sensors, say) stays in it, and `forget()` drops the rest.
///
/// The base tells the story of each call and signal, applies faults, and refuses what sd-bus
/// would refuse unseen (unknown members, wrong signatures). A derived class has a vtable whose
/// methods are `serve<&Derived::method>`, and emits signals with `emit`.
class Service {
  public:
    /// A method of a vtable or one of its signals.
    enum class MemberKind { method, signal };

    /// One interface at one path, with the vtable that describes and serves it.
    struct Object {
        BusObject names;
        const sd_bus_vtable* vtable;
    };

    /// `name` is the short name that users type: "temperature".
    Service(std::string name, Surroundings& surroundings);
    virtual ~Service() = default;
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    /// Connects, exports the objects and requests the bus names, in this order: a call that waits
    /// for a name finds everything in place. Does nothing when it is up.
    /// @throws tool::Failure (unavailable) when the bus is not reached or a name not had.
    void bring_up(const std::string& address);
    /// Leaves the bus: names are lost, late replies discarded, registrations forgotten. `why` is
    /// for the story. Not to be called from a callback of this service's own connection.
    void take_down(const std::string& why);

    [[nodiscard]] const std::string& name() const noexcept { return name_; }
    [[nodiscard]] bool is_up() const noexcept { return connection_ != nullptr; }
    /// Empty when it is down.
    [[nodiscard]] std::string unique_name() const;
    /// The well-known names, each once.
    [[nodiscard]] std::vector<std::string> bus_names() const;
    /// Methods and signals by name.
    [[nodiscard]] std::vector<std::pair<std::string, MemberKind>> members() const;

    /// What can be set, with what it is now.
    [[nodiscard]] virtual std::vector<Value> values() const = 0;
    /// What a value would be after `set_value(name, text)`, for a check ahead of time.
    /// @throws Refusal for an unknown name or a text that makes no value.
    [[nodiscard]] virtual tool::Json parse_value(const std::string& name,
                                                 const std::string& text) const = 0;
    /// Sets a value, tells it and emits the signals that are due.
    /// @throws Refusal as `parse_value`.
    virtual void set_value(const std::string& name, const std::string& text) = 0;
    /// Who has registered for what, for `show`: objects with "id", "client", "what" and more.
    [[nodiscard]] virtual tool::Json registrations() const = 0;

  protected:
    /// The objects, the same at each call; valid as long as the service.
    [[nodiscard]] virtual std::span<const Object> objects() const = 0;
    /// A client has left the bus; returns how many of its registrations were dropped.
    virtual std::size_t client_left(const std::string& unique_name) = 0;
    /// Forgets what a process forgets when it ends.
    virtual void forget() = 0;

    /// Emits a signal with arguments as `sd_bus_message_append` takes them. Does nothing when the
    /// service is down.
    template <class... Arguments>
    void emit(const BusObject& object, const char* member, const char* types,
              Arguments... arguments) {
        if (!is_up())
            return;
        tool::MessagePtr signal = new_signal(object, member);
        tool::check(sd_bus_message_append(signal.get(), types, arguments...),
                    "sd_bus_message_append");
        send_signal(std::move(signal));
    }

    /// The reply to `call` with these values, to be returned by a method.
    template <class... Values>
    [[nodiscard]] static tool::MessagePtr reply(sd_bus_message& call, const char* types,
                                                Values... values) {
        tool::MessagePtr message = new_reply(call);
        tool::check(sd_bus_message_append(message.get(), types, values...),
                    "sd_bus_message_append");
        return message;
    }

    /// The vtable entry for `tool::MessagePtr Derived::method(sd_bus_message&)`, which returns the
    /// reply or throws BusRefusal.
    template <auto Method>
    static int serve(sd_bus_message* call, void* userdata, sd_bus_error* /*error*/) noexcept {
        return Serve<Method>::run(*call, *static_cast<Service*>(userdata));
    }

    [[nodiscard]] Story& story() const noexcept { return around_.story; }

  private:
    template <auto Method>
    struct Serve;

    template <class Derived, tool::MessagePtr (Derived::*Method)(sd_bus_message&)>
    struct Serve<Method> {
        static int run(sd_bus_message& call, Service& service) noexcept {
            return service.answer(call,
                                  [&] { return (static_cast<Derived&>(service).*Method)(call); });
        }
    };

    [[nodiscard]] tool::MessagePtr new_signal(const BusObject& object, const char* member) const;
    [[nodiscard]] static tool::MessagePtr new_reply(sd_bus_message& call);

    int on_message(sd_bus_message& message);
    int on_client_left(sd_bus_message& message);
    int on_call(sd_bus_message& call);
    [[nodiscard]] const sd_bus_vtable& method_for(sd_bus_message& call) const;
    /// To the method, which goes on to `answer`.
    int hand_on(sd_bus_message& call, const sd_bus_vtable& method);
    int answer(sd_bus_message& call, const std::function<tool::MessagePtr()>& method) noexcept;
    void send_signal(tool::MessagePtr signal);
    void send_reply(sd_bus_message& call, tool::MessagePtr reply, std::chrono::milliseconds delay);
    void send_now(sd_bus_message& message, const std::string& member);
    void drop(std::chrono::milliseconds delay);

    std::string name_;
    Surroundings& around_;
    Timers timers_;
    std::unique_ptr<Connection> connection_;
    std::vector<tool::SlotPtr> slots_;  // released before the connection
    Fault fault_;                       // for the call that is being dispatched
    tool::MessagePtr malformed_reply_;  // to it, where the fault wants one
};

}  // namespace camera
