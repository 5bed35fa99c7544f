#include "tests/fuzz/values.hpp"

#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string_view>

#include "tests/support/bus_messages.hpp"

namespace fuzz {
namespace {

using support::check;

constexpr int max_depth = 5;
constexpr std::size_t max_values = 6;

constexpr const char* known_signatures[] = {"",   "s",  "i",      "d",     "b",       "v",
                                            "u",  "id", "ib",     "sd",    "sss",     "a(sas)",
                                            "as", "sv", "sa{sv}", "a{sv}", "sa{sv}as"};

constexpr const char* known_texts[] = {"",
                                       "main",
                                       "Grad °C \xf0\x9f\x8c\xa1",
                                       ":1.5",
                                       ":1.6",
                                       "PowerReceived",
                                       "PowerUsed",
                                       "WDR1",
                                       "en-us",
                                       "enabled",
                                       "disabled",
                                       "com.tarlo.TemperatureController",
                                       "com.tarlo.PowerControl.Consumer",
                                       "com.tarlo.PowerControl.Status",
                                       "com.tarlo.Onscreencontrols1"};

constexpr double known_numbers[] = {0.0,
                                    -0.0,
                                    12.0,
                                    36.5,
                                    -273.15,
                                    1e300,
                                    std::numeric_limits<double>::infinity(),
                                    std::numeric_limits<double>::quiet_NaN()};

constexpr std::int32_t known_ids[] = {0, -1, 1, 3, 10, 11, 12, 13};

// The keys of dictionaries are of a basic type.
constexpr std::string_view basic_types = "ybnqiuxtdsogh";
constexpr std::string_view types = "ybnqiuxtdsoghva({";

char pick_of(std::string_view kinds, Input& input) {
    return kinds[input.ConsumeIntegralInRange<std::size_t>(0, kinds.size() - 1)];
}

/// One complete type.
std::string type(Input& input, int depth) {
    const char kind = pick_of(depth > 0 ? types : basic_types, input);
    switch (kind) {
        case 'a':
            return 'a' + type(input, depth - 1);
        case '{': {
            const char key = pick_of(basic_types, input);
            return std::string("a{") + key + type(input, depth - 1) + '}';
        }
        case '(': {
            std::string inside;
            for (int left = input.ConsumeIntegralInRange(1, 3); left > 0; --left)
                inside += type(input, depth - 1);
            return '(' + inside + ')';
        }
        default:
            return {kind};
    }
}

/// The first complete type of some.
std::string first_of(const std::string& types) {
    std::size_t end = 0;
    while (types[end] == 'a')
        ++end;
    int open = 0;
    do {
        open += types[end] == '(' || types[end] == '{' ? 1 : 0;
        open -= types[end] == ')' || types[end] == '}' ? 1 : 0;
        ++end;
    } while (open > 0);
    return types.substr(0, end);
}

double number(Input& input) {
    return input.ConsumeBool() ? input.PickValueInArray(known_numbers)
                               : input.ConsumeFloatingPoint<double>();
}

void append_string(sd_bus_message* message, char kind, const std::string& value) {
    check(sd_bus_message_append_basic(message, kind, value.c_str()));
}

void append_basic(sd_bus_message* message, char kind, Input& input) {
    switch (kind) {
        case 's':
            return append_string(message, kind, text(input));
        case 'o':
            return append_string(message, kind, input.ConsumeBool() ? "/" : "/com/tarlo/A_1");
        case 'g':
            return append_string(message, kind, input.ConsumeBool() ? "" : "a{sv}");
        case 'd': {
            const double value = number(input);
            check(sd_bus_message_append_basic(message, kind, &value));
            return;
        }
        case 'b': {
            const int value = input.ConsumeBool() ? 1 : 0;
            check(sd_bus_message_append_basic(message, kind, &value));
            return;
        }
        case 'i': {
            const auto value = input.ConsumeBool() ? input.PickValueInArray(known_ids)
                                                   : input.ConsumeIntegral<std::int32_t>();
            check(sd_bus_message_append_basic(message, kind, &value));
            return;
        }
        case 'h': {
            const int descriptor = STDERR_FILENO;  // sd-bus sends a copy
            check(sd_bus_message_append_basic(message, kind, &descriptor));
            return;
        }
        default: {
            // The other integers: sd-bus takes as many of the bytes as the type has.
            const auto value = input.ConsumeIntegral<std::uint64_t>();
            check(sd_bus_message_append_basic(message, kind, &value));
        }
    }
}

void append_one(sd_bus_message* message, const std::string& of_type, Input& input) {
    const std::string inside = of_type.substr(1);
    switch (of_type.front()) {
        case 'a':
            check(sd_bus_message_open_container(message, 'a', inside.c_str()));
            for (int left = input.ConsumeIntegralInRange(0, 3); left > 0; --left)
                append_one(message, inside, input);
            break;
        case '(':
        case '{': {
            const std::string members = inside.substr(0, inside.size() - 1);
            check(sd_bus_message_open_container(message, of_type.front() == '(' ? 'r' : 'e',
                                                members.c_str()));
            append_values(message, members, input);
            break;
        }
        case 'v': {
            const std::string value_type = type(input, 2);
            check(sd_bus_message_open_container(message, 'v', value_type.c_str()));
            append_one(message, value_type, input);
            break;
        }
        default:
            return append_basic(message, of_type.front(), input);
    }
    check(sd_bus_message_close_container(message));
}

}  // namespace

std::string text(Input& input) {
    if (input.ConsumeBool())
        return input.PickValueInArray(known_texts);
    std::string any = input.ConsumeRandomLengthString(64);
    // D-Bus takes nothing but UTF-8 without zeros.
    for (char& c : any)
        c = static_cast<char>((c & 0x7f) == 0 ? ' ' : c & 0x7f);
    return any;
}

std::string signature(Input& input) {
    if (input.ConsumeBool())
        return input.PickValueInArray(known_signatures);
    std::string types;
    for (std::size_t left = input.ConsumeIntegralInRange<std::size_t>(0, max_values); left > 0;
         --left)
        types += type(input, max_depth);
    return types;
}

void append_values(sd_bus_message* message, const std::string& types, Input& input) {
    for (std::string rest = types; !rest.empty();) {
        const std::string first = first_of(rest);
        append_one(message, first, input);
        rest.erase(0, first.size());
    }
}

}  // namespace fuzz
