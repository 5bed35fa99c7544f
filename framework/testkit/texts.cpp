#include "framework/testkit/texts.hpp"

#include <cstdint>
#include <ostream>

#include "fenwa/testkit/call.hpp"
#include "fenwa/testkit/recorders.hpp"
#include "fenwa/testkit/values.hpp"
#include "framework/testkit/sdbus_result.hpp"

namespace Fenwa::testkit {
namespace {

// The value of each kind, as a person writes it.
std::string text_of(bool value) {
    return value ? "true" : "false";
}
std::string text_of(const std::string& value) {
    return quoted(value);
}
std::string text_of(const std::vector<std::string>& values) {
    std::string text;
    for (const std::string& value : values)
        text += (text.empty() ? "" : ", ") + quoted(value);
    return '[' + text + ']';
}
std::string text_of(const datatype_timersource& value) {
    return "tick " + std::to_string(value.ticks) + " of " + std::to_string(value.period.count()) +
           " ms";
}
std::string text_of(const OtherValue& value) {
    return '<' + value.datatype + '>';
}
template <class Number>
requires std::is_arithmetic_v<Number> std::string text_of(Number value) {
    return number_text(value);
}

template <class Variant>
std::string text_of_any(const Variant& variant) {
    return std::visit([](const auto& value) { return text_of(value); }, variant);
}

template <class T>
std::string read_number(sd_bus_message* message, char type) {
    T value{};
    check(sd_bus_message_read_basic(message, type, &value));
    return number_text(value);
}

std::string read_basic(sd_bus_message* message, char type) {
    switch (type) {
        case 'b': {
            int value = 0;
            check(sd_bus_message_read_basic(message, type, &value));
            return text_of(value != 0);
        }
        case 'y':
            return read_number<std::uint8_t>(message, type);
        case 'n':
            return read_number<std::int16_t>(message, type);
        case 'q':
            return read_number<std::uint16_t>(message, type);
        case 'i':
        case 'h':
            return read_number<std::int32_t>(message, type);
        case 'u':
            return read_number<std::uint32_t>(message, type);
        case 'x':
            return read_number<std::int64_t>(message, type);
        case 't':
            return read_number<std::uint64_t>(message, type);
        case 'd':
            return read_number<double>(message, type);
        default: {
            const char* value = nullptr;
            check(sd_bus_message_read_basic(message, type, &value));
            return quoted(value);
        }
    }
}

/// All values up to the end of the container that the message is in.
std::string read_all(sd_bus_message* message, const char* separator) {
    std::string text;
    char type = 0;
    const char* contents = nullptr;
    while (check(sd_bus_message_peek_type(message, &type, &contents)) > 0) {
        if (!text.empty())
            text += separator;
        if (contents == nullptr) {
            text += std::string(1, type) + ' ' + read_basic(message, type);
            continue;
        }
        const std::string inner = contents;
        check(sd_bus_message_enter_container(message, type, inner.c_str()));
        const std::string values = read_all(message, type == SD_BUS_TYPE_ARRAY ? "; " : ", ");
        check(sd_bus_message_exit_container(message));
        if (type == SD_BUS_TYPE_ARRAY)
            text += 'a' + inner + " [" + values + ']';
        else if (type == SD_BUS_TYPE_VARIANT)
            text += "v <" + values + '>';
        else if (type == SD_BUS_TYPE_STRUCT)
            text += '(' + values + ')';
        else
            text += values;
    }
    return text;
}

}  // namespace

std::string arguments_text(sd_bus_message* message) {
    check(sd_bus_message_rewind(message, 1));
    std::string text = read_all(message, ", ");
    check(sd_bus_message_rewind(message, 1));
    return text;
}

std::ostream& operator<<(std::ostream& out, const Call& call) {
    return out << call.destination << ' ' << call.path << ' ' << call.interface << ' '
               << call.member << '(' << call.arguments << ')';
}

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
    switch (line.level) {
        case 1:
            out << "error";
            break;
        case 2:
            out << "warning";
            break;
        case 4:
            out << "information";
            break;
        default:
            out << "level " << line.level;
    }
    return out << ": " << line.text;
}

std::ostream& operator<<(std::ostream& out, const DebugEntry& entry) {
    return out << entry.key << " = " << text_of_any(entry.value);
}

std::ostream& operator<<(std::ostream& out, const Output& output) {
    return out << output.port << " = " << text_of_any(output.value);
}

std::ostream& operator<<(std::ostream& out, const Setting& setting) {
    return out << setting.key << " = " << text_of_any(setting.value);
}

}  // namespace Fenwa::testkit
