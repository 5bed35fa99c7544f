#include "camera/service/properties.hpp"

#include <fmt/core.h>

#include <nlohmann/json.hpp>
#include <string_view>

#include "camera/bus/message_json.hpp"
#include "camera/models/command_error.hpp"
#include "common/bus/bus.hpp"
#include "common/text/suggestion.hpp"

namespace camera {
namespace {

using common::check;
using common::Json;

void append_entry(sd_bus_message& message, const sd_bus_vtable& property,
                  const AppendValue& append_value) {
    check(sd_bus_message_open_container(&message, 'e', "sv"), "sd_bus_message_open_container");
    check(sd_bus_message_append(&message, "s", property.x.property.member),
          "sd_bus_message_append");
    append_value(message, property);
    check(sd_bus_message_close_container(&message), "sd_bus_message_close_container");
}

}  // namespace

const ServedObject* object_of_property_call(sd_bus_message& call,
                                            std::span<const ServedObject> objects) {
    if (text_or_empty(sd_bus_message_get_interface(&call)) != properties_interface)
        return nullptr;
    const std::string path = text_or_empty(sd_bus_message_get_path(&call));
    const Json arguments = body_json(call);
    if (arguments.empty() || !arguments[0].is_string())
        return nullptr;
    for (const ServedObject& object : objects) {
        if (path == object.names.path && arguments[0] == object.names.interface &&
            !names_of(object, MemberKind::property).empty())
            return &object;
    }
    return nullptr;
}

PropertyCall parse_property_call(sd_bus_message& call, const ServedObject& object) {
    const std::string member = text_or_empty(sd_bus_message_get_member(&call));
    const std::string signature = text_or_empty(sd_bus_message_get_signature(&call, 1));
    const std::string wanted = member == "Get"      ? "ss"
                               : member == "GetAll" ? "s"
                               : member == "Set"    ? "ssv"
                                                    : "";
    if (wanted.empty())
        throw DBusError(SD_BUS_ERROR_UNKNOWN_METHOD, fmt::format("Unknown method '{}'", member));
    if (signature != wanted)
        throw DBusError(SD_BUS_ERROR_INVALID_ARGS,
                        fmt::format("{} takes '{}', not '{}'.", member, wanted, signature));
    const std::vector<std::string> known = names_of(object, MemberKind::property);
    if (member == "GetAll") {
        PropertyCall all{&object, {}, true};
        for (const std::string& name : known)
            all.properties.push_back(find_property(object, name));
        return all;
    }
    const auto name = body_json(call)[1].get<std::string>();
    const sd_bus_vtable* property = find_property(object, name);
    if (property == nullptr) {
        throw DBusError(SD_BUS_ERROR_UNKNOWN_PROPERTY,
                        common::with_help(fmt::format("Unknown property '{}'", name),
                                          common::did_you_mean(name, known)));
    }
    if (member == "Set")
        throw DBusError(SD_BUS_ERROR_PROPERTY_READ_ONLY,
                        fmt::format("The property '{}' is read-only.", name));
    return {&object, {property}, false};
}

void append_reply(sd_bus_message& reply, const PropertyCall& call,
                  const AppendValue& append_value) {
    if (!call.all) {
        append_value(reply, *call.properties.front());
        return;
    }
    check(sd_bus_message_open_container(&reply, 'a', "{sv}"), "sd_bus_message_open_container");
    for (const sd_bus_vtable* property : call.properties)
        append_entry(reply, *property, append_value);
    check(sd_bus_message_close_container(&reply), "sd_bus_message_close_container");
}

void append_change(sd_bus_message& signal, const ServedObject& object,
                   const sd_bus_vtable& property, const AppendValue& append_value) {
    check(sd_bus_message_append(&signal, "s", object.names.interface), "sd_bus_message_append");
    check(sd_bus_message_open_container(&signal, 'a', "{sv}"), "sd_bus_message_open_container");
    append_entry(signal, property, append_value);
    check(sd_bus_message_close_container(&signal), "sd_bus_message_close_container");
    check(sd_bus_message_append(&signal, "as", 0), "sd_bus_message_append");
}

void append_right_value(sd_bus_message& message, const ServedObject& object,
                        const sd_bus_vtable& property, void* userdata) {
    const auto& entry = property.x.property;
    check(sd_bus_message_open_container(&message, 'v', entry.signature),
          "sd_bus_message_open_container");
    check(entry.get(sd_bus_message_get_bus(&message), object.names.path, object.names.interface,
                    entry.member, &message, userdata, nullptr),
          entry.member);
    check(sd_bus_message_close_container(&message), "sd_bus_message_close_container");
}

void append_wrong_value(sd_bus_message& message, const sd_bus_vtable& property) {
    const char* right = property.x.property.signature;
    check(sd_bus_message_open_container(&message, 'v', right[0] == SD_BUS_TYPE_STRING ? "i" : "s"),
          "sd_bus_message_open_container");
    append_wrong(message, right);
    check(sd_bus_message_close_container(&message), "sd_bus_message_close_container");
}

void append_wrong(sd_bus_message& message, const char* types) {
    if (types[0] == SD_BUS_TYPE_STRING)
        check(sd_bus_message_append(&message, "i", -1), "sd_bus_message_append");
    else
        check(sd_bus_message_append(&message, "s", "malformed"), "sd_bus_message_append");
}

}  // namespace camera
