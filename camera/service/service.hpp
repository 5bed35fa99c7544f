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

#include "camera/bus/names.hpp"
#include "camera/bus/timers.hpp"
#include "camera/models/command_error.hpp"
#include "camera/service/connection.hpp"
#include "camera/service/event_log.hpp"
#include "camera/service/fault_rules.hpp"
#include "camera/service/outgoing_calls.hpp"
#include "camera/service/served_object.hpp"
#include "common/bus/bus.hpp"
#include "common/bus/callback.hpp"

namespace camera {

/// What a service has around it; all of it outlives the service.
struct ServiceContext {
    sd_event& event;
    EventLog& event_log;
    FaultRules& faults;
    std::function<void(const CallRecord&)> called;         ///< a method call has arrived
    std::function<void()> changed;                         ///< a value has changed by itself
    std::function<void(const std::string& service)> drop;  ///< a fault takes the service down
    std::function<void()> lost;                            ///< the daemon ended a connection
};

/// A value of the camera that can be seen and, mostly, set.
struct Value {
    std::string name;  ///< mostly "GROUP.NAME": "temperature.main"; services may share a group
    common::Json value;
};

/// One D-Bus service of the camera platform, on a connection of its own, so that it can come, go
/// and restart as a process does. The object itself lives as long as the camera: what a restart
/// must not forget (sensors, say) stays in it, and `forget()` drops the rest.
///
/// The base tells the event log of each call and signal, applies faults, and refuses what sd-bus
/// would refuse unseen (unknown members, wrong signatures). A derived class has a vtable whose
/// methods are `serve<&Derived::method>` and whose properties have an sd-bus getter with the
/// service for userdata; it emits signals with `emit` and `emit_changed`, and calls others with
/// `call_out`.
class Service {
  public:
    /// `name` is the short name that users type: "temperature".
    Service(std::string name, ServiceContext& surroundings);
    virtual ~Service() = default;
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    /// Connects, exports the objects and requests the bus names, in this order: a call that waits
    /// for a name finds everything in place. Does nothing when it is up.
    /// @throws common::Failure (unavailable) when the bus is not reached or a name not had.
    void bring_up(const std::string& address);
    /// Leaves the bus: names are lost, late replies discarded, registrations forgotten. `why` is
    /// for the event log. Not to be called from a callback of this service's own connection.
    void take_down(const std::string& why);

    [[nodiscard]] const std::string& name() const noexcept { return name_; }
    /// Whether its bus names are those of the machine rather than of the camera: they are left to
    /// whoever has them when the camera begins, and no call brings the service up.
    [[nodiscard]] virtual bool belongs_to_machine() const { return false; }
    [[nodiscard]] bool is_up() const noexcept { return connection_ != nullptr; }
    /// Empty when it is down.
    [[nodiscard]] std::string unique_name() const;
    /// The well-known names, each once.
    [[nodiscard]] std::vector<std::string> bus_names() const;
    /// Methods, signals, properties and outgoing calls by name.
    [[nodiscard]] Members members() const;

    /// What can be seen, with what it is now.
    [[nodiscard]] virtual std::vector<Value> values() const = 0;
    /// Whether a value of this name is the service's, even where it is not there (now).
    [[nodiscard]] virtual bool claims(const std::string& value) const;
    /// What a value that the service claims is now.
    /// @throws CommandError where it is not there.
    [[nodiscard]] virtual common::Json value(const std::string& name) const;
    /// What the value would be that a text stands for, for a check ahead of time.
    /// @throws CommandError for an unknown name or a text that makes no value.
    [[nodiscard]] virtual common::Json parse_value(const std::string& name,
                                                   const std::string& text) const = 0;
    /// @throws CommandError where the value can be seen only.
    virtual void check_settable(const std::string& /*name*/) const {}
    /// Sets a settable value, tells it and sends what is due.
    /// @throws CommandError as `parse_value`.
    virtual void set_value(const std::string& name, const std::string& text) = 0;
    /// Who has registered for what, for `show`: objects with "id", "client", "what" and more.
    [[nodiscard]] virtual common::Json registrations() const { return common::Json::array(); }

  protected:
    /// The objects, the same at each call; valid as long as the service.
    [[nodiscard]] virtual std::span<const ServedObject> objects() const = 0;
    /// The methods of others that the service calls.
    [[nodiscard]] virtual std::vector<std::string> outgoing_calls() const { return {}; }
    /// A client has left the bus; returns how many of its registrations were dropped.
    /// What outlives its client, or is nobody's, is not dropped.
    virtual std::size_t client_left(const std::string& /*unique_name*/) { return 0; }
    /// Forgets what a process forgets when it ends.
    virtual void forget() {}

    /// Emits a signal with arguments as `sd_bus_message_append` takes them. Does nothing when the
    /// service is down.
    template <class... Arguments>
    void emit(const BusObject& object, const char* member, const char* types,
              Arguments... arguments) {
        if (!is_up())
            return;
        const auto empty = [&] { return new_signal(object, member); };
        send_signal(with_body(empty(), types, arguments...),
                    [&] { return with_wrong_body(empty(), types); });
    }

    /// Emits PropertiesChanged with the value that a property of the service has now. Does nothing
    /// when the service is down.
    void emit_changed(const BusObject& object, const char* property);

    /// Calls a method of somebody else, who need not be there: the answer, or what came in place
    /// of it, goes into the event log and nowhere else. `about` says what the call is about.
    template <class... Arguments>
    void call_out(const std::string& about, const BusObject& to, const char* member,
                  const char* types, Arguments... arguments) {
        if (!is_up())
            return;
        const auto empty = [&] { return new_call(to, member); };
        send_call(about, with_body(empty(), types, arguments...),
                  [&] { return with_wrong_body(empty(), types); });
    }
    /// From here on answers to the calls about this are ignored, and what is late is not sent.
    void forget_calls(const std::string& about) { outgoing_.forget(about); }

    /// To be used by a method and by `client_left`: `what` is done when the call was answered, or
    /// the loss of the client told.
    void afterwards(std::function<void()> what) { afterwards_ = std::move(what); }

    /// The reply to `call` with these values, to be returned by a method.
    template <class... Values>
    [[nodiscard]] static common::MessagePtr reply(sd_bus_message& call, const char* types,
                                                  Values... values) {
        return with_body(common::new_reply(call), types, values...);
    }

    /// The vtable entry for `common::MessagePtr Derived::method(sd_bus_message&)`, which returns
    /// the reply or throws DBusError.
    template <auto Method>
    static int serve(sd_bus_message* call, void* userdata, sd_bus_error* error) noexcept {
        constexpr sd_bus_message_handler_t handler =
            common::callback<&Service::answer_with<Method>>;
        return handler(call, userdata, error);
    }

    [[nodiscard]] EventLog& event_log() const noexcept { return context_.event_log; }
    /// Tells that values have changed that nobody has set.
    void values_changed() const { context_.changed(); }

  private:
    template <auto Method>
    int answer_with(sd_bus_message& call) {
        return answer(call, [&] { return call_method(Method, call); });
    }
    template <class Derived>
    common::MessagePtr call_method(common::MessagePtr (Derived::*method)(sd_bus_message&),
                                   sd_bus_message& call) {
        return (static_cast<Derived&>(*this).*method)(call);
    }

    using MakeMessage = std::function<common::MessagePtr()>;
    using SendMessage = std::function<void(sd_bus_message&)>;

    [[nodiscard]] common::MessagePtr new_signal(const BusObject& object, const char* member) const;
    [[nodiscard]] common::MessagePtr new_call(const BusObject& to, const char* member) const;
    template <class... Arguments>
    static common::MessagePtr with_body(common::MessagePtr message, const char* types,
                                        Arguments... arguments) {
        common::check(sd_bus_message_append(message.get(), types, arguments...),
                      "sd_bus_message_append");
        return message;
    }
    /// With a body that whoever expects `types` cannot read.
    static common::MessagePtr with_wrong_body(common::MessagePtr message, const char* types);

    int on_message(sd_bus_message& message);
    int on_client_left(sd_bus_message& message);
    int on_call(sd_bus_message& call);
    int on_property_call(sd_bus_message& call, const ServedObject& object);
    void begin_call(sd_bus_message& call);
    void do_afterwards();
    int refuse(sd_bus_message& call, const DBusError& refusal);
    /// Does to the call what the fault wants: `wrong` makes a malformed reply, `serve` serves it.
    int with_fault(sd_bus_message& call, Fault fault, const MakeMessage& wrong,
                   const std::function<int()>& serve);
    [[nodiscard]] const sd_bus_vtable& method_for(sd_bus_message& call) const;
    /// To the method, which goes on to `answer`.
    int hand_on(sd_bus_message& call, const sd_bus_vtable& method);
    int answer(sd_bus_message& call, const std::function<common::MessagePtr()>& method) noexcept;
    void send_reply(sd_bus_message& call, common::MessagePtr reply,
                    std::chrono::milliseconds delay);
    /// Sends what nobody has asked for, with the faults of its member. False when it goes astray.
    bool send_unasked(common::MessagePtr message, const MakeMessage& wrong,
                      const SendMessage& send);
    void send_signal(common::MessagePtr signal, const MakeMessage& wrong);
    void send_call(const std::string& about, common::MessagePtr call, const MakeMessage& wrong);
    void send_late(std::chrono::milliseconds delay, common::MessagePtr message, SendMessage send);
    void send_now(sd_bus_message& message, const std::string& member);
    void drop(std::chrono::milliseconds delay);

    std::string name_;
    ServiceContext& context_;
    Timers timers_;
    std::unique_ptr<Connection> connection_;
    std::vector<common::SlotPtr> slots_;  // released before the connection
    OutgoingCalls outgoing_;              // likewise
    Fault fault_;                         // for the call that is being dispatched
    common::MessagePtr malformed_reply_;  // to it, where the fault wants one
    std::function<void()> afterwards_;    // when it was answered
};

}  // namespace camera
