// How a service answers calls: event log, fault rules, errors.
#include <fmt/core.h>

#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string_view>

#include "camera/bus/message_json.hpp"
#include "camera/service/properties.hpp"
#include "camera/service/service.hpp"
#include "common/text/suggestion.hpp"

namespace camera {
namespace {

using common::check;
using common::MessagePtr;

MessagePtr new_error(sd_bus_message& call, const std::string& name, const std::string& text) {
    MessagePtr message;
    const sd_bus_error error = SD_BUS_ERROR_MAKE_CONST(name.c_str(), text.c_str());
    check(sd_bus_message_new_method_error(&call, message.out(), &error),
          "sd_bus_message_new_method_error");
    return message;
}

}  // namespace

int Service::on_message(sd_bus_message& message) {
    std::uint8_t type = 0;
    check(sd_bus_message_get_type(&message, &type), "sd_bus_message_get_type");
    if (type != SD_BUS_MESSAGE_METHOD_CALL)
        return 0;
    if (leave_to_script(message))
        return 1;
    if (const ServedObject* object = object_of_property_call(message, objects_))
        return on_property_call(message, *object);
    // sd-bus serves introspection and peers by itself, and nobody wants them in the log.
    if (text_or_empty(sd_bus_message_get_interface(&message)).starts_with("org.freedesktop.DBus."))
        return 0;
    return on_call(message);
}

void Service::begin_call(sd_bus_message& call) {
    const CallRecord record{name_, text_or_empty(sd_bus_message_get_member(&call)),
                            common::share(body_json(call)),
                            text_or_empty(sd_bus_message_get_sender(&call))};
    context_.event_log.call(record);
    context_.called(record);
    current_ = {};
}

int Service::refuse(sd_bus_message& call, const DBusError& error) {
    send_reply(call, new_error(call, error.name(), error.what()), {});
    return 1;
}

int Service::on_call(sd_bus_message& call) {
    begin_call(call);
    const sd_bus_vtable* method = nullptr;
    try {
        method = &method_for(call);
    } catch (const DBusError& refusal) {
        return refuse(call, refusal);
    }
    return with_fault(
        call, context_.faults.take(name_, method->x.method.member).value_or(Fault{}),
        [&] {
            return with_wrong_body(common::new_reply(call),
                                   text_or_empty(method->x.method.result).c_str());
        },
        [&] { return dispatch(call, *method); });
}

int Service::on_property_call(sd_bus_message& call, const ServedObject& object) {
    begin_call(call);
    PropertyCall asked{};
    try {
        asked = parse_property_call(call, object);
    } catch (const DBusError& refusal) {
        return refuse(call, refusal);
    }
    // A rule for a property goes ahead of one for the method that reads it.
    const sd_bus_vtable* hit = nullptr;
    std::optional<Fault> fault;
    for (const sd_bus_vtable* property : asked.properties) {
        if ((fault = context_.faults.take(name_, property->x.property.member))) {
            hit = property;
            break;
        }
    }
    if (!fault)
        fault = context_.faults.take(name_, sd_bus_message_get_member(&call));

    const auto right = [&](sd_bus_message& reply, const sd_bus_vtable& property) {
        append_right_value(reply, object, property, this);
    };
    const auto wrong_reply = [&] {
        if (hit == nullptr)
            return with_wrong_body(common::new_reply(call), asked.all ? "a{sv}" : "v");
        MessagePtr reply = common::new_reply(call);
        append_reply(*reply, asked, [&](sd_bus_message& message, const sd_bus_vtable& property) {
            &property == hit ? append_wrong_value(message, property) : right(message, property);
        });
        return reply;
    };
    // sd-bus would answer by itself, neither late nor logged.
    const auto right_reply = [&] {
        MessagePtr reply = common::new_reply(call);
        append_reply(*reply, asked, right);
        return reply;
    };
    return with_fault(call, fault.value_or(Fault{}), wrong_reply,
                      [&] { return answer(call, right_reply); });
}

int Service::with_fault(sd_bus_message& call, Fault fault, const MakeMessage& wrong,
                        const std::function<int()>& serve) {
    current_.fault = std::move(fault);
    switch (current_.fault.effect) {
        case FaultEffect::none:
            return serve();
        case FaultEffect::malformed:
            // Made ahead: within a method of the vtable sd-bus refuses a reply of another
            // signature.
            current_.malformed_reply = wrong();
            return serve();
        case FaultEffect::error:
            send_reply(
                call, new_error(call, current_.fault.error_name, "A fault rule answers this call."),
                current_.fault.delay);
            return 1;
        case FaultEffect::silent:
            return 1;
        case FaultEffect::drop:
            drop(current_.fault.delay);
            return 1;
    }
    return 0;
}

int Service::dispatch(sd_bus_message& call, const sd_bus_vtable& method) {
    // sd-bus finds the method of the vtable by itself, unless the call leaves the interface out.
    if (sd_bus_message_get_interface(&call) != nullptr)
        return 0;
    return method.x.method.handler(&call, this, nullptr);
}

const sd_bus_vtable& Service::method_for(sd_bus_message& call) const {
    const std::string path = text_or_empty(sd_bus_message_get_path(&call));
    const std::string interface = text_or_empty(sd_bus_message_get_interface(&call));
    const std::string member = text_or_empty(sd_bus_message_get_member(&call));
    const ServedObject* served = nullptr;
    bool path_known = false;
    for (const ServedObject& object : objects_) {
        path_known = path_known || path == object.names.path;
        // A call may leave the interface out.
        if (path == object.names.path && (interface.empty() || interface == object.names.interface))
            served = &object;
    }
    if (!path_known)
        throw DBusError(SD_BUS_ERROR_UNKNOWN_OBJECT, fmt::format("Unknown object '{}'.", path));
    if (served == nullptr)
        throw DBusError(
            SD_BUS_ERROR_UNKNOWN_INTERFACE,
            fmt::format("The object '{}' does not have the interface '{}'.", path, interface));
    const sd_bus_vtable* method = find_method(*served, member);
    if (method == nullptr)
        throw DBusError(
            SD_BUS_ERROR_UNKNOWN_METHOD,
            common::with_help(fmt::format("Unknown method '{}'", member),
                              common::did_you_mean(member, names_of(*served, MemberKind::method))));
    const std::string signature = text_or_empty(sd_bus_message_get_signature(&call, 1));
    const std::string wanted = text_or_empty(method->x.method.signature);
    if (signature != wanted)
        throw DBusError(SD_BUS_ERROR_INVALID_ARGS,
                        fmt::format("{} takes '{}', not '{}'.", member, wanted, signature));
    return *method;
}

int Service::answer(sd_bus_message& call, const std::function<MessagePtr()>& method) noexcept {
    try {
        const Fault fault = std::exchange(current_.fault, {});
        MessagePtr reply;
        try {
            reply = method();
        } catch (const DBusError& refusal) {
            reply = new_error(call, refusal.name(), refusal.what());
        } catch (const CapacityError& full) {
            const DBusError refusal = error(full.name(), full.what());
            reply = new_error(call, refusal.name(), refusal.what());
        }
        if (current_.malformed_reply)
            reply = std::move(current_.malformed_reply);
        send_reply(call, std::move(reply), fault.delay);
        run_afterwards();
        return 1;
    } catch (const std::system_error& error) {
        return -error.code().value();  // sd-bus answers with that error
    } catch (const std::exception&) {
        return -ENOMEM;
    }
}

}  // namespace camera
