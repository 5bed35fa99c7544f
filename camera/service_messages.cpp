// What a service does with the messages that come and go: story, faults, refusals.
#include <cerrno>
#include <cstring>
#include <string_view>

#include "camera/message_json.hpp"
#include "camera/service.hpp"
#include "common/suggestion.hpp"

namespace camera {
namespace {

using tool::check;
using tool::MessagePtr;

std::string text_or_empty(const char* text) {
    return text == nullptr ? "" : text;
}

const sd_bus_vtable* find_method(const sd_bus_vtable* vtable, std::string_view member) {
    for (const sd_bus_vtable* v = vtable; v->type != _SD_BUS_VTABLE_END; ++v) {
        if (v->type == _SD_BUS_VTABLE_METHOD && v->x.method.member == member)
            return v;
    }
    return nullptr;
}

std::vector<std::string> method_names(const sd_bus_vtable* vtable) {
    std::vector<std::string> names;
    for (const sd_bus_vtable* v = vtable; v->type != _SD_BUS_VTABLE_END; ++v) {
        if (v->type == _SD_BUS_VTABLE_METHOD)
            names.emplace_back(v->x.method.member);
    }
    return names;
}

std::string with_hint(std::string sentence, const std::string& hint) {
    return hint.empty() ? sentence : std::move(sentence) + "; " + hint;
}

/// A message of the same kind and way as `right`, with a body that its receiver cannot read.
void append_malformed(sd_bus_message& message, const char* right_signature) {
    if (right_signature[0] == SD_BUS_TYPE_STRING)
        check(sd_bus_message_append(&message, "i", -1), "sd_bus_message_append");
    else
        check(sd_bus_message_append(&message, "s", "malformed"), "sd_bus_message_append");
}

MessagePtr new_error(sd_bus_message& call, const std::string& name, const std::string& text) {
    sd_bus_message* message = nullptr;
    const sd_bus_error error = SD_BUS_ERROR_MAKE_CONST(name.c_str(), text.c_str());
    check(sd_bus_message_new_method_error(&call, &message, &error),
          "sd_bus_message_new_method_error");
    return MessagePtr(message);
}

}  // namespace

MessagePtr Service::new_reply(sd_bus_message& call) {
    sd_bus_message* message = nullptr;
    check(sd_bus_message_new_method_return(&call, &message), "sd_bus_message_new_method_return");
    return MessagePtr(message);
}

MessagePtr Service::new_signal(const BusObject& object, const char* member) const {
    sd_bus_message* message = nullptr;
    check(sd_bus_message_new_signal(&connection_->bus(), &message, object.path, object.interface,
                                    member),
          "sd_bus_message_new_signal");
    return MessagePtr(message);
}

int Service::on_message(sd_bus_message& message) {
    std::uint8_t type = 0;
    check(sd_bus_message_get_type(&message, &type), "sd_bus_message_get_type");
    if (type != SD_BUS_MESSAGE_METHOD_CALL)
        return 0;
    // sd-bus serves introspection, peers and properties by itself; they are no news.
    if (text_or_empty(sd_bus_message_get_interface(&message)).starts_with("org.freedesktop.DBus."))
        return 0;
    return on_call(message);
}

int Service::on_call(sd_bus_message& call) {
    const std::string member = text_or_empty(sd_bus_message_get_member(&call));
    const CallRecord record{name_, member, body_json(call),
                            text_or_empty(sd_bus_message_get_sender(&call))};
    around_.story.call(record);
    around_.called(record);

    fault_ = {};
    malformed_reply_.reset();
    const sd_bus_vtable* method = nullptr;
    try {
        method = &method_for(call);
    } catch (const BusRefusal& refusal) {
        send_reply(call, new_error(call, refusal.name(), refusal.what()), {});
        return 1;
    }
    fault_ = around_.faults.take(name_, member).value_or(Fault{});
    switch (fault_.effect) {
        case FaultEffect::none:
            return hand_on(call, *method);
        case FaultEffect::malformed:
            // Made here: once the vtable is in play, sd-bus sends no reply of another signature.
            malformed_reply_ = new_reply(call);
            append_malformed(*malformed_reply_, method->x.method.result);
            return hand_on(call, *method);
        case FaultEffect::error:
            send_reply(call, new_error(call, fault_.error_name, "A fault rule answers this call."),
                       fault_.delay);
            return 1;
        case FaultEffect::silent:
            return 1;
        case FaultEffect::drop:
            drop(fault_.delay);
            return 1;
    }
    return 0;
}

int Service::hand_on(sd_bus_message& call, const sd_bus_vtable& method) {
    // sd-bus finds the method of the vtable by itself, unless the call leaves the interface out.
    if (sd_bus_message_get_interface(&call) != nullptr)
        return 0;
    return method.x.method.handler(&call, this, nullptr);
}

const sd_bus_vtable& Service::method_for(sd_bus_message& call) const {
    const std::string path = text_or_empty(sd_bus_message_get_path(&call));
    const std::string interface = text_or_empty(sd_bus_message_get_interface(&call));
    const std::string member = text_or_empty(sd_bus_message_get_member(&call));
    const sd_bus_vtable* vtable = nullptr;
    bool path_known = false;
    for (const Object& object : objects()) {
        path_known = path_known || path == object.names.path;
        // A call may leave the interface out.
        if (path == object.names.path && (interface.empty() || interface == object.names.interface))
            vtable = object.vtable;
    }
    if (!path_known)
        throw BusRefusal(SD_BUS_ERROR_UNKNOWN_OBJECT, "There is no object '" + path + "'.");
    if (vtable == nullptr)
        throw BusRefusal(SD_BUS_ERROR_UNKNOWN_INTERFACE,
                         "'" + path + "' has no interface '" + interface + "'.");
    const sd_bus_vtable* method = find_method(vtable, member);
    if (method == nullptr)
        throw BusRefusal(SD_BUS_ERROR_UNKNOWN_METHOD,
                         with_hint("There is no method '" + member + "'",
                                   tool::did_you_mean(member, method_names(vtable))));
    const std::string signature = text_or_empty(sd_bus_message_get_signature(&call, 1));
    if (signature != method->x.method.signature)
        throw BusRefusal(
            SD_BUS_ERROR_INVALID_ARGS,
            member + " takes '" + method->x.method.signature + "', not '" + signature + "'.");
    return *method;
}

int Service::answer(sd_bus_message& call, const std::function<MessagePtr()>& method) noexcept {
    try {
        const Fault fault = std::exchange(fault_, {});
        MessagePtr reply;
        try {
            reply = method();
        } catch (const BusRefusal& refusal) {
            reply = new_error(call, refusal.name(), refusal.what());
        }
        if (malformed_reply_)
            reply = std::move(malformed_reply_);
        send_reply(call, std::move(reply), fault.delay);
        return 1;
    } catch (const std::system_error& error) {
        return -error.code().value();  // sd-bus answers with that error
    } catch (const std::exception&) {
        return -ENOMEM;
    }
}

void Service::send_reply(sd_bus_message& call, MessagePtr reply, std::chrono::milliseconds delay) {
    if (sd_bus_message_get_expect_reply(&call) <= 0)
        return;
    const std::string member = text_or_empty(sd_bus_message_get_member(&call));
    if (delay.count() == 0) {
        send_now(*reply, member);
        return;
    }
    // Shared, because std::function wants what it holds to be copyable.
    timers_.once(delay, [this, member, late = std::shared_ptr<sd_bus_message>(std::move(reply))] {
        send_now(*late, member);
    });
}

void Service::send_signal(MessagePtr signal) {
    const std::string member = text_or_empty(sd_bus_message_get_member(signal.get()));
    const Fault fault = around_.faults.take(name_, member).value_or(Fault{});
    switch (fault.effect) {
        case FaultEffect::none:
        case FaultEffect::error:  // refused for signals when the rule is made
            break;
        case FaultEffect::malformed: {
            const BusObject object{nullptr, sd_bus_message_get_path(signal.get()),
                                   sd_bus_message_get_interface(signal.get())};
            MessagePtr wrong = new_signal(object, member.c_str());
            append_malformed(*wrong, sd_bus_message_get_signature(signal.get(), 1));
            signal = std::move(wrong);
            break;
        }
        case FaultEffect::silent:
            return;
        case FaultEffect::drop:
            drop(fault.delay);
            return;
    }
    if (fault.delay.count() == 0) {
        send_now(*signal, member);
        return;
    }
    timers_.once(fault.delay,
                 [this, member, late = std::shared_ptr<sd_bus_message>(std::move(signal))] {
                     send_now(*late, member);
                 });
}

void Service::send_now(sd_bus_message& message, const std::string& member) {
    const int r = sd_bus_send(&connection_->bus(), &message, nullptr);
    // A connection that has just been lost is told of elsewhere.
    if (r == -ENOTCONN || r == -ECONNRESET)
        return;
    check(r, "sd_bus_send");

    // Sending has sealed the message, so that it can be read like a received one.
    const tool::Json body = body_json(message);
    const std::string receiver = text_or_empty(sd_bus_message_get_destination(&message));
    if (sd_bus_message_is_method_error(&message, nullptr) > 0) {
        around_.story.error_reply(name_, member, receiver, sd_bus_message_get_error(&message)->name,
                                  body.empty() ? "" : body[0].get<std::string>());
    } else if (receiver.empty()) {
        around_.story.signal(name_, member, body);
    } else {
        around_.story.reply(name_, member, receiver, body);
    }
}

void Service::drop(std::chrono::milliseconds delay) {
    // From the loop, ahead of everything else: a connection cannot be closed in its own callback,
    // and nothing else may be answered in between.
    timers_.once(
        delay, [this] { around_.drop(name_); }, SD_EVENT_PRIORITY_IMPORTANT);
}

}  // namespace camera
