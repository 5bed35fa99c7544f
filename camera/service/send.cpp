// How a service sends replies, signals and calls, and how fault rules spoil or delay them.
#include <cerrno>
#include <nlohmann/json.hpp>

#include "camera/bus/message_json.hpp"
#include "camera/service/properties.hpp"
#include "camera/service/service.hpp"

namespace camera {
namespace {

using common::check;
using common::MessagePtr;

}  // namespace

MessagePtr Service::new_signal(const BusObject& object, const char* member) const {
    MessagePtr message;
    check(sd_bus_message_new_signal(&connection_->bus(), message.out(), object.path,
                                    object.interface, member),
          "sd_bus_message_new_signal");
    return message;
}

MessagePtr Service::new_call(const BusObject& to, const char* member) const {
    MessagePtr call;
    check(sd_bus_message_new_method_call(&connection_->bus(), call.out(), to.name, to.path,
                                         to.interface, member),
          "sd_bus_message_new_method_call");
    // A client has chosen the name, which must not make the daemon start programs.
    check(sd_bus_message_set_auto_start(call.get(), 0), "sd_bus_message_set_auto_start");
    return call;
}

MessagePtr Service::with_wrong_body(MessagePtr message, const char* types) {
    append_wrong(*message, types);
    return message;
}

void Service::send_reply(sd_bus_message& call, MessagePtr reply, std::chrono::milliseconds delay) {
    if (sd_bus_message_get_expect_reply(&call) <= 0)
        return;
    send_late(delay, std::move(reply),
              [this, member = text_or_empty(sd_bus_message_get_member(&call))](
                  sd_bus_message& late) { send_now(late, member); });
}

bool Service::send_with_fault(MessagePtr message, const MakeMessage& wrong,
                              const SendMessage& send) {
    const Fault fault =
        context_.faults.take(name_, sd_bus_message_get_member(message.get())).value_or(Fault{});
    switch (fault.effect) {
        case FaultEffect::none:
        case FaultEffect::error:  // no rule for a signal or an outgoing call has it
            break;
        case FaultEffect::malformed:
            message = wrong();
            break;
        case FaultEffect::silent:
            return false;
        case FaultEffect::drop:
            drop(fault.delay);
            return false;
    }
    send_late(fault.delay, std::move(message), send);
    return true;
}

void Service::send_signal(MessagePtr signal, const MakeMessage& wrong) {
    const std::string member = text_or_empty(sd_bus_message_get_member(signal.get()));
    (void)send_with_fault(std::move(signal), wrong,
                          [this, member](sd_bus_message& message) { send_now(message, member); });
}

void Service::send_call(const std::string& about, MessagePtr call, const MakeMessage& wrong) {
    const std::weak_ptr<OutgoingCalls::Call> handle = outgoing_.add(about, *call);
    const bool sent =
        send_with_fault(std::move(call), wrong, [this, handle](sd_bus_message& message) {
            outgoing_.send(connection_->bus(), handle, message);
        });
    if (!sent)
        outgoing_.forget(handle);
}

void Service::emit_changed(const BusObject& object, const char* property) {
    if (!is_up())
        return;
    for (const ServedObject& served : objects_) {
        const sd_bus_vtable* entry = find_property(served, property);
        if (entry == nullptr || std::string_view(served.names.interface) != object.interface)
            continue;
        const auto signal = [&](const AppendValue& append_value) {
            const BusObject properties{nullptr, object.path, properties_interface};
            MessagePtr message = new_signal(properties, "PropertiesChanged");
            append_change(*message, served, *entry, append_value);
            return message;
        };
        send_signal(signal([&](sd_bus_message& message, const sd_bus_vtable& which) {
                        append_right_value(message, served, which, this);
                    }),
                    [&] { return signal(append_wrong_value); });
    }
}

void Service::send_late(std::chrono::milliseconds delay, MessagePtr message, SendMessage send) {
    if (delay.count() == 0) {
        send(*message);
        return;
    }
    // Shared, because a std::function must be copyable.
    timers_.once(delay, [send = std::move(send), late = std::make_shared<MessagePtr>(
                                                     std::move(message))] { send(**late); });
}

void Service::send_now(sd_bus_message& message, const std::string& member) {
    const int r = sd_bus_send(&connection_->bus(), &message, nullptr);
    // Connection reports the loss.
    if (r == -ENOTCONN || r == -ECONNRESET)
        return;
    check(r, "sd_bus_send");

    // Sending has sealed the message: it can be read like a received one.
    const common::Json body = body_json(message);
    const std::string receiver = text_or_empty(sd_bus_message_get_destination(&message));
    if (sd_bus_message_is_method_error(&message, nullptr) > 0) {
        context_.event_log.error_reply(name_, member, receiver,
                                       sd_bus_message_get_error(&message)->name,
                                       body.empty() ? "" : body[0].get<std::string>());
    } else if (receiver.empty()) {
        context_.event_log.signal(name_, member, body);
    } else {
        context_.event_log.reply(name_, member, receiver, body);
    }
}

void Service::drop(std::chrono::milliseconds delay) {
    // From the loop, because a connection cannot be closed in its own callback; ahead of everything
    // else, because nothing may be answered in between.
    timers_.once(
        delay, [this] { context_.drop(name_); }, SD_EVENT_PRIORITY_IMPORTANT);
}

}  // namespace camera
