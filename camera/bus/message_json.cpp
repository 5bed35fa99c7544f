#include "camera/bus/message_json.hpp"

#include <cstdint>
#include <nlohmann/json.hpp>

#include "common/bus/bus.hpp"

namespace camera {
namespace {

using common::check;
using common::Json;

template <class T>
T basic(sd_bus_message& message, char type) {
    T value{};
    check(sd_bus_message_read_basic(&message, type, &value), "sd_bus_message_read_basic");
    return value;
}

/// Reads the next value; `more` becomes false at the end of the container. D-Bus allows 64 nested
/// containers, so this may recurse.
Json next_value(sd_bus_message& message, bool& more);

Json elements(sd_bus_message& message) {
    Json list = Json::array();
    for (bool more = true; more;) {
        Json value = next_value(message, more);
        if (more)
            list.push_back(std::move(value));
    }
    return list;
}

Json dictionary(sd_bus_message& message, const std::string& entry) {
    Json pairs = elements(message);
    if (entry[1] != 's' && entry[1] != 'o' && entry[1] != 'g')
        return pairs;
    Json object = Json::object();
    for (const Json& pair : pairs)
        object[pair[0].get<std::string>()] = pair[1];
    return object;
}

Json container(sd_bus_message& message, char type, const char* contents) {
    const std::string inside = contents;
    check(sd_bus_message_enter_container(&message, type, contents),
          "sd_bus_message_enter_container");
    Json value;
    if (type == SD_BUS_TYPE_ARRAY && inside[0] == '{')
        value = dictionary(message, inside);
    else
        value = elements(message);
    check(sd_bus_message_exit_container(&message), "sd_bus_message_exit_container");
    if (type == SD_BUS_TYPE_VARIANT)
        return value.at(0);
    return value;
}

Json next_value(sd_bus_message& message, bool& more) {
    char type = 0;
    const char* contents = nullptr;
    more =
        check(sd_bus_message_peek_type(&message, &type, &contents), "sd_bus_message_peek_type") > 0;
    if (!more)
        return {};
    switch (type) {
        case SD_BUS_TYPE_BYTE:
            return basic<std::uint8_t>(message, type);
        case SD_BUS_TYPE_BOOLEAN:
            return basic<int>(message, type) != 0;
        case SD_BUS_TYPE_INT16:
            return basic<std::int16_t>(message, type);
        case SD_BUS_TYPE_UINT16:
            return basic<std::uint16_t>(message, type);
        case SD_BUS_TYPE_INT32:
            return basic<std::int32_t>(message, type);
        case SD_BUS_TYPE_UINT32:
            return basic<std::uint32_t>(message, type);
        case SD_BUS_TYPE_INT64:
            return basic<std::int64_t>(message, type);
        case SD_BUS_TYPE_UINT64:
            return basic<std::uint64_t>(message, type);
        case SD_BUS_TYPE_DOUBLE:
            return common::json_number(basic<double>(message, type));
        case SD_BUS_TYPE_STRING:
        case SD_BUS_TYPE_OBJECT_PATH:
        case SD_BUS_TYPE_SIGNATURE:
            return basic<const char*>(message, type);
        case SD_BUS_TYPE_UNIX_FD:
            check(sd_bus_message_skip(&message, "h"), "sd_bus_message_skip");
            return "<file descriptor>";
        default:
            return container(message, type, contents);
    }
}

}  // namespace

std::string text_or_empty(const char* text) {
    return text == nullptr ? "" : text;
}

Json body_json(sd_bus_message& message) {
    check(sd_bus_message_rewind(&message, 1), "sd_bus_message_rewind");
    Json body = elements(message);
    check(sd_bus_message_rewind(&message, 1), "sd_bus_message_rewind");
    return body;
}

std::string arguments_text(const Json& arguments) {
    std::string text;
    for (const Json& argument : arguments)
        text.append(text.empty() ? "" : ", ").append(common::json_line(argument));
    return text;
}

}  // namespace camera
