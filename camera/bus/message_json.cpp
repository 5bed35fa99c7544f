#include "camera/bus/message_json.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>
#include <system_error>

#include "camera/models/command_error.hpp"
#include "common/bus/bus.hpp"
#include "common/text/number_text.hpp"

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

/// What becomes of a variant: its value, or an object of its type and its value.
enum class Variants { plain, typed };

/// Reads the next value; `more` becomes false at the end of the container. D-Bus allows 64 nested
/// containers, so this may recurse.
Json next_value(sd_bus_message& message, Variants variants, bool& more);

Json elements(sd_bus_message& message, Variants variants) {
    Json list = Json::array();
    for (bool more = true; more;) {
        Json value = next_value(message, variants, more);
        if (more)
            list.push_back(std::move(value));
    }
    return list;
}

Json dictionary(sd_bus_message& message, Variants variants, const std::string& entry) {
    Json pairs = elements(message, variants);
    if (entry[1] != 's' && entry[1] != 'o' && entry[1] != 'g')
        return pairs;
    Json object = Json::object();
    for (const Json& pair : pairs)
        object[pair[0].get<std::string>()] = pair[1];
    return object;
}

Json container(sd_bus_message& message, Variants variants, char type, const char* contents) {
    const std::string inside = contents;
    check(sd_bus_message_enter_container(&message, type, contents),
          "sd_bus_message_enter_container");
    Json value;
    if (type == SD_BUS_TYPE_ARRAY && inside[0] == '{')
        value = dictionary(message, variants, inside);
    else
        value = elements(message, variants);
    check(sd_bus_message_exit_container(&message), "sd_bus_message_exit_container");
    if (type != SD_BUS_TYPE_VARIANT)
        return value;
    return variants == Variants::typed ? Json{{inside, value.at(0)}} : value.at(0);
}

Json next_value(sd_bus_message& message, Variants variants, bool& more) {
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
            return container(message, variants, type, contents);
    }
}

Json whole_body(sd_bus_message& message, Variants variants) {
    check(sd_bus_message_rewind(&message, 1), "sd_bus_message_rewind");
    Json body = elements(message, variants);
    check(sd_bus_message_rewind(&message, 1), "sd_bus_message_rewind");
    return body;
}

/// Splits the first complete type off a signature: "a{sv}", "(sas)", "d".
std::string_view take_type(std::string_view& types) {
    std::size_t end = std::min(types.size(), types.find_first_not_of('a'));
    int depth = 0;
    for (; end < types.size(); ++end) {
        depth += types[end] == '(' || types[end] == '{' ? 1 : 0;
        depth -= types[end] == ')' || types[end] == '}' ? 1 : 0;
        if (depth == 0)
            break;
    }
    const std::string_view type = types.substr(0, std::min(types.size(), end + 1));
    types.remove_prefix(type.size());
    return type;
}

/// Whether a text may be the type of a variant: one complete type of known letters.
bool is_single_type(const std::string& types) {
    std::string_view rest = types;
    return !types.empty() && types.find_first_not_of("ybnqiuxtdsogvha(){}") == std::string::npos &&
           take_type(rest).size() == types.size() && types.back() != 'a';
}

[[noreturn]] void refuse(std::string_view type, const Json& value) {
    throw CommandError(
        fmt::format("{} is not a value of the D-Bus type '{}'", common::json_line(value), type));
}

template <class T>
void append_basic(sd_bus_message& message, char type, T value) {
    check(sd_bus_message_append_basic(&message, type, &value), "sd_bus_message_append_basic");
}

template <class T>
void append_integer(sd_bus_message& message, std::string_view type, const Json& value) {
    // TOML has no integers above the range of 64 bits with a sign: they are texts.
    const std::string text = common::plain_text(value);
    const std::optional<T> number = common::parse_number<T>(text);
    if (!number || (!value.is_number_integer() && !value.is_string()))
        refuse(type, value);
    append_basic<T>(message, type[0], *number);
}

void append_double(sd_bus_message& message, const Json& value) {
    static const std::map<std::string, double> others = {
        {"nan", std::numeric_limits<double>::quiet_NaN()},
        {"inf", std::numeric_limits<double>::infinity()},
        {"-inf", -std::numeric_limits<double>::infinity()}};
    if (value.is_number())
        return append_basic<double>(message, SD_BUS_TYPE_DOUBLE, value.get<double>());
    const auto other = value.is_string() ? others.find(value.get<std::string>()) : others.end();
    if (other == others.end())
        refuse("d", value);
    append_basic<double>(message, SD_BUS_TYPE_DOUBLE, other->second);
}

void append_text(sd_bus_message& message, std::string_view type, const Json& value) {
    if (!value.is_string() ||
        sd_bus_message_append_basic(&message, type[0], value.get<std::string>().c_str()) < 0)
        refuse(type, value);
}

void append_value(sd_bus_message& message, std::string_view type, const Json& value);

/// Appends the values of a container whose types are `types`.
void append_values(sd_bus_message& message, std::string_view types, const Json& values) {
    const std::string_view all = types;
    for (const Json& value : values) {
        if (types.empty())
            refuse(all, values);
        append_value(message, take_type(types), value);
    }
    if (!types.empty())
        refuse(all, values);
}

template <class Append>
void append_container(sd_bus_message& message, char type, const std::string& contents,
                      const Append& append) {
    check(sd_bus_message_open_container(&message, type, contents.c_str()),
          "sd_bus_message_open_container");
    append();
    check(sd_bus_message_close_container(&message), "sd_bus_message_close_container");
}

/// Appends the elements of an array; of a dictionary, the entries of an object, or pairs.
void append_array(sd_bus_message& message, std::string_view type, const Json& value) {
    const std::string element(type.substr(1));
    const bool dictionary = element[0] == '{';
    if (!value.is_array() && !(dictionary && value.is_object()))
        refuse(type, value);
    const auto append_element = [&](const Json& each) { append_value(message, element, each); };
    append_container(message, SD_BUS_TYPE_ARRAY, element, [&] {
        if (value.is_object()) {
            for (const auto& [key, each] : value.items())
                append_element(Json::array({key, each}));
        } else {
            for (const Json& each : value)
                append_element(each);
        }
    });
}

void append_value(sd_bus_message& message, std::string_view type, const Json& value) {
    switch (type[0]) {
        case SD_BUS_TYPE_BYTE:
            return append_integer<std::uint8_t>(message, type, value);
        case SD_BUS_TYPE_BOOLEAN:
            if (!value.is_boolean())
                refuse(type, value);
            return append_basic<int>(message, type[0], value.get<bool>() ? 1 : 0);
        case SD_BUS_TYPE_INT16:
            return append_integer<std::int16_t>(message, type, value);
        case SD_BUS_TYPE_UINT16:
            return append_integer<std::uint16_t>(message, type, value);
        case SD_BUS_TYPE_INT32:
            return append_integer<std::int32_t>(message, type, value);
        case SD_BUS_TYPE_UINT32:
            return append_integer<std::uint32_t>(message, type, value);
        case SD_BUS_TYPE_INT64:
            return append_integer<std::int64_t>(message, type, value);
        case SD_BUS_TYPE_UINT64:
            return append_integer<std::uint64_t>(message, type, value);
        case SD_BUS_TYPE_DOUBLE:
            return append_double(message, value);
        case SD_BUS_TYPE_STRING:
        case SD_BUS_TYPE_OBJECT_PATH:
        case SD_BUS_TYPE_SIGNATURE:
            return append_text(message, type, value);
        case SD_BUS_TYPE_ARRAY:
            return append_array(message, type, value);
        case SD_BUS_TYPE_STRUCT_BEGIN:
        case SD_BUS_TYPE_DICT_ENTRY_BEGIN: {
            if (!value.is_array() || type.size() < 3)
                refuse(type, value);
            const std::string inside(type.substr(1, type.size() - 2));
            const char kind = type[0] == '(' ? SD_BUS_TYPE_STRUCT : SD_BUS_TYPE_DICT_ENTRY;
            return append_container(message, kind, inside,
                                    [&] { append_values(message, inside, value); });
        }
        case SD_BUS_TYPE_VARIANT: {
            if (!value.is_object() || value.size() != 1 || !is_single_type(value.begin().key()))
                refuse(type, value);
            const std::string& inside = value.begin().key();
            return append_container(message, SD_BUS_TYPE_VARIANT, inside,
                                    [&] { append_value(message, inside, value.front()); });
        }
        default:
            refuse(type, value);
    }
}

}  // namespace

std::string text_or_empty(const char* text) {
    return text == nullptr ? "" : text;
}

Json body_json(sd_bus_message& message) {
    return whole_body(message, Variants::plain);
}

Json typed_body_json(sd_bus_message& message) {
    return whole_body(message, Variants::typed);
}

void append_json(sd_bus_message& message, const std::string& types, const Json& values) {
    try {
        append_values(message, types, values);
    } catch (const std::system_error&) {
        throw CommandError(
            fmt::format("'{}' is not a D-Bus signature for {}", types, common::json_line(values)));
    }
}

std::string arguments_text(const Json& arguments) {
    std::string text;
    for (const Json& argument : arguments)
        text.append(text.empty() ? "" : ", ").append(common::json_line(argument));
    return text;
}

}  // namespace camera
