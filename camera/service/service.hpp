#pragma once

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "camera/bus/arguments.hpp"
#include "camera/bus/names.hpp"
#include "camera/bus/timers.hpp"
#include "camera/models/command_error.hpp"
#include "camera/service/connection.hpp"
#include "camera/service/event_log.hpp"
#include "camera/service/fault_rules.hpp"
#include "camera/service/outgoing_calls.hpp"
#include "camera/service/reply_script.hpp"
#include "camera/service/served_object.hpp"
#include "common/bus/bus.hpp"
#include "common/bus/callback.hpp"

namespace camera {

/// What all services of a camera share; it outlives them.
struct ServiceContext {
    sd_event& event;
    EventLog& event_log;
    FaultRules& faults;
    ReplyScript& script;
    std::function<void(const CallRecord&)> called;         ///< reports a method call that arrives
    std::function<void()> changed;                         ///< reports values that nobody has set
    std::function<void(const std::string& service)> drop;  ///< takes a service down for a fault
    std::function<void()> lost;                            ///< reports a connection that is lost
};

/// A value of the camera. It must not outlive the service that returned it.
struct Value {
    std::string name;  ///< mostly "GROUP.NAME": "temperature.main"; services may share a group
    common::SharedJson value;  ///< the value now
    /// The value that a text stands for. @throws CommandError where it stands for none.
    std::function<common::Json(const std::string& text)> parse;
    /// Sets the value to a text that `parse` accepts, logs that and sends what is due. Null for a
    /// read-only value.
    std::function<void(const std::string& text)> set;
    const char* why_read_only = "";  ///< for the message: "it counts calls of SignalVideoReady"
};

/// One D-Bus service of the camera platform, on a connection of its own, so that it can come, go
/// and restart as a process does. The object itself lives as long as the camera: what a restart
/// must not forget (sensors, say) stays in it, and `forget()` drops the rest.
///
/// The base logs each call and signal, applies faults, and answers the calls that sd-bus would
/// refuse unlogged (unknown members, wrong signatures). A derived class passes its vtable to
/// `serve_object`: methods are `serve<&Derived::method>`, getters of properties
/// `append_property<&Derived::method>`. It emits signals with `emit` and `emit_changed`, and calls
/// methods of clients with `call_out`.
class Service {
  public:
    /// @param name the short name that users type: "temperature".
    Service(std::string name, ServiceContext& context);
    virtual ~Service() = default;
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    /// Connects, exports the objects and requests the bus names, in this order: a call that waits
    /// for a name finds everything in place. Does nothing when the service is up.
    /// @throws common::Failure (unavailable) when the bus cannot be reached or a name not owned.
    void bring_up(const std::string& address);
    /// Leaves the bus: names are lost, late replies discarded, registrations forgotten. The daemon
    /// has seen it on return, so that the service can come up again at once. Must not be called
    /// from a callback of this service's own connection.
    /// @param why for the event log.
    void take_down(const std::string& why);

    [[nodiscard]] const std::string& name() const noexcept { return name_; }
    /// Whether its bus names belong to the machine rather than to the camera: then the service does
    /// not start where they have an owner already, and no call brings it up.
    [[nodiscard]] virtual bool belongs_to_machine() const { return false; }
    [[nodiscard]] bool is_up() const noexcept { return connection_ != nullptr; }
    /// The name that the daemon has given to the connection; empty when the service is down.
    [[nodiscard]] std::string unique_name() const;
    /// The well-known names, each once.
    [[nodiscard]] std::vector<std::string> bus_names() const;
    /// Methods, signals, properties and outgoing calls by name.
    [[nodiscard]] Members members() const;
    [[nodiscard]] const std::vector<ServedObject>& objects() const noexcept { return objects_; }

    /// Sends a message of a scenario. Does nothing when the service is down.
    /// @throws CommandError where it cannot be put together.
    void send(const ScriptedMessage& message);

    /// The values that there are now.
    [[nodiscard]] virtual std::vector<Value> values() = 0;
    /// The value of this name, which need not be among `values()`; nothing where it is not the
    /// service's. @throws CommandError where the service knows what is wrong with the name.
    [[nodiscard]] virtual std::optional<Value> find_value(const std::string& name);
    /// The registrations of clients, for `show`: objects with "id", "client", "what" and more.
    [[nodiscard]] virtual common::Json registrations() const;

  protected:
    /// Adds an object that the service exports, in the constructor only. Names and vtable must
    /// outlive the service.
    void serve_object(const BusObject& names, const sd_bus_vtable* vtable) {
        objects_.push_back({names, vtable});
    }
    /// Adds the name of a method that the service calls, in the constructor only.
    void declare_outgoing_call(const char* member) { outgoing_members_.emplace_back(member); }

    /// From here on `drop_client` is called when the sender of this call leaves the bus.
    /// @throws std::system_error when the daemon does not answer.
    void follow_sender(sd_bus_message& call);
    /// Drops the registrations of a client that has left the bus and returns how many there were.
    virtual std::size_t drop_client(const std::string& /*unique_name*/) { return 0; }
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

    /// Calls a method of a client, which need not be there: the answer or the error is logged and
    /// changes nothing.
    /// @param about the subject of the call, for `forget_calls`.
    template <class... Arguments>
    void call_out(const std::string& about, const BusObject& to, const char* member,
                  const char* types, Arguments... arguments) {
        if (!is_up())
            return;
        const auto empty = [&] { return new_call(to, member); };
        send_call(about, with_body(empty(), types, arguments...),
                  [&] { return with_wrong_body(empty(), types); });
    }
    /// From here on ignores the answers to the calls about this, and does not send late ones.
    void forget_calls(const std::string& about) { outgoing_.forget(about); }

    /// For methods and `drop_client`: runs `action` once the call is answered, or the departure of
    /// the client logged.
    void afterwards(std::function<void()> action) { current_.afterwards = std::move(action); }

    /// An error of the service's own interface: `name` is the part after ".Error.".
    [[nodiscard]] DBusError error(const char* name, const std::string& sentence) const;
    /// The reply to `call` with these values, to be returned by a method.
    template <class... Values>
    [[nodiscard]] static common::MessagePtr reply(sd_bus_message& call, const char* types,
                                                  Values... values) {
        return with_body(common::new_reply(call), types, values...);
    }

    /// The vtable entry for `common::MessagePtr Derived::method(sd_bus_message& call, …)`, which
    /// returns the reply, or throws DBusError or CapacityError. Its further parameters, as
    /// `argument` reads them, are the first arguments of the call.
    template <auto Method>
    static int serve(sd_bus_message* call, void* userdata, sd_bus_error* error) noexcept {
        constexpr sd_bus_message_handler_t handler =
            common::callback<&Service::answer_with<Method>>;
        return handler(call, userdata, error);
    }
    /// The vtable entry for `void Derived::getter(sd_bus_message& reply)`, which appends the value.
    template <auto Getter>
    static int append_property(sd_bus* bus, const char* path, const char* interface,
                               const char* property, sd_bus_message* reply, void* userdata,
                               sd_bus_error* error) noexcept {
        constexpr sd_bus_property_get_t getter = common::callback<&Service::append_with<Getter>>;
        return getter(bus, path, interface, property, reply, userdata, error);
    }

    [[nodiscard]] EventLog& event_log() const noexcept { return context_.event_log; }
    /// Reports that values have changed that nobody has set.
    void values_changed() const { context_.changed(); }

  private:
    /// A client that is followed as long as it is on the bus.
    struct Client {
        void on_left() { service->client_left(*this); }

        Service* service;
        std::string unique_name;
        common::TrackPtr track{};
    };
    /// What belongs to the call, or the departure, that is being served.
    struct Current {
        Fault fault{};
        common::MessagePtr malformed_reply{};  ///< where the fault wants one
        std::function<void()> afterwards{};
    };

    template <auto Method>
    int answer_with(sd_bus_message& call) {
        return answer(call, [&] { return call_method(Method, call); });
    }
    template <class Derived, class... Arguments>
    common::MessagePtr call_method(common::MessagePtr (Derived::*method)(sd_bus_message&,
                                                                         Arguments...),
                                   sd_bus_message& call) {
        // Braces, because they read the arguments from left to right.
        std::tuple<Derived&, sd_bus_message&, std::remove_cvref_t<Arguments>...> arguments{
            static_cast<Derived&>(*this), call, argument<std::remove_cvref_t<Arguments>>(call)...};
        return std::apply(method, arguments);
    }
    template <auto Getter>
    void append_with(sd_bus_message& reply) {
        append_value(Getter, reply);
    }
    template <class Derived>
    void append_value(void (Derived::*getter)(sd_bus_message&), sd_bus_message& reply) {
        (static_cast<Derived&>(*this).*getter)(reply);
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
    /// With a body that a receiver which expects `types` cannot read.
    static common::MessagePtr with_wrong_body(common::MessagePtr message, const char* types);

    int on_message(sd_bus_message& message);
    void client_left(const Client& client);
    int on_call(sd_bus_message& call);
    /// Leaves a call to the scenario; false where the scenario has no reply to it.
    [[nodiscard]] bool leave_to_script(sd_bus_message& call);
    void send_scripted_reply(sd_bus_message& call, const ScriptedReply& reply);
    int on_property_call(sd_bus_message& call, const ServedObject& object);
    void begin_call(sd_bus_message& call);
    void run_afterwards();
    int refuse(sd_bus_message& call, const DBusError& error);
    /// Applies the fault to the call: `wrong` makes a malformed reply, `serve` serves it.
    int with_fault(sd_bus_message& call, Fault fault, const MakeMessage& wrong,
                   const std::function<int()>& serve);
    [[nodiscard]] const sd_bus_vtable& method_for(sd_bus_message& call) const;
    /// Calls the method, which calls `answer`.
    int dispatch(sd_bus_message& call, const sd_bus_vtable& method);
    int answer(sd_bus_message& call, const std::function<common::MessagePtr()>& method) noexcept;
    void send_reply(sd_bus_message& call, common::MessagePtr reply,
                    std::chrono::milliseconds delay);
    /// Sends a signal or an outgoing call, applying fault rules. False if a rule suppressed it.
    bool send_with_fault(common::MessagePtr message, const MakeMessage& wrong,
                         const SendMessage& send);
    void send_signal(common::MessagePtr signal, const MakeMessage& wrong);
    void send_call(const std::string& about, common::MessagePtr call, const MakeMessage& wrong);
    void send_late(std::chrono::milliseconds delay, common::MessagePtr message, SendMessage send);
    void send_now(sd_bus_message& message, const std::string& member);
    void drop(std::chrono::milliseconds delay);

    std::string name_;
    ServiceContext& context_;
    std::vector<ServedObject> objects_;
    std::vector<std::string> outgoing_members_;
    Timers timers_;
    std::unique_ptr<Connection> connection_;  // null while the service is down
    std::vector<common::SlotPtr> slots_;      // released before the connection, as the next two
    std::map<std::string, Client> clients_;   // by unique name
    OutgoingCalls outgoing_;
    Current current_;
};

}  // namespace camera
