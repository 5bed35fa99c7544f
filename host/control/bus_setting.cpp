#include "host/control/bus_setting.hpp"

#include <fmt/core.h>

#include <limits>
#include <memory>
#include <set>
#include <string>

#include "common/bus/bus.hpp"
#include "common/text/line_text.hpp"
#include "host/control/names.hpp"

namespace host {
namespace {

using common::check;
using Value = Fenwa::BlockConfiguration::Value;

struct Append {
    sd_bus_message* message;

    int operator()(bool value) const {
        return sd_bus_message_append(message, "v", "b", static_cast<int>(value));
    }
    int operator()(std::int64_t value) const {
        return sd_bus_message_append(message, "v", "x", value);
    }
    int operator()(double value) const { return sd_bus_message_append(message, "v", "d", value); }
    int operator()(const std::string& value) const {
        return sd_bus_message_append(message, "v", "s", value.c_str());
    }
    int operator()(const std::vector<std::string>& value) const {
        int r = sd_bus_message_open_container(message, SD_BUS_TYPE_VARIANT, "as");
        if (r >= 0)
            r = common::append_strings(*message, value);
        return r < 0 ? r : sd_bus_message_close_container(message);
    }
};

template <class Basic>
Basic read_basic(sd_bus_message& message, char type) {
    Basic value{};
    check(sd_bus_message_read_basic(&message, type, &value), "cannot read a setting");
    return value;
}

[[noreturn]] void refuse(const std::string& key, const std::string& what) {
    throw ControlError(wrong_setting_error,
                       fmt::format("the key {} {}", common::in_quotes(key), what));
}

/// Reads the content of a variant of the type `held`.
Value setting_of_type(sd_bus_message& message, const std::string& key, const std::string& held) {
    if (held == "as")
        return common::read_strings(message);
    switch (held.size() == 1 ? held.front() : '\0') {
        case 'b':
            return read_basic<int>(message, 'b') != 0;
        case 'd':
            return read_basic<double>(message, 'd');
        case 's':
            return std::string(read_basic<const char*>(message, 's'));
        case 'y':
            return std::int64_t{read_basic<std::uint8_t>(message, 'y')};
        case 'n':
            return std::int64_t{read_basic<std::int16_t>(message, 'n')};
        case 'q':
            return std::int64_t{read_basic<std::uint16_t>(message, 'q')};
        case 'i':
            return std::int64_t{read_basic<std::int32_t>(message, 'i')};
        case 'u':
            return std::int64_t{read_basic<std::uint32_t>(message, 'u')};
        case 'x':
            return read_basic<std::int64_t>(message, 'x');
        case 't': {
            const auto value = read_basic<std::uint64_t>(message, 't');
            if (value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
                refuse(key, "is too large for a 64-bit signed integer");
            return static_cast<std::int64_t>(value);
        }
        default:
            refuse(key, fmt::format("cannot be of the D-Bus type '{}'; a setting is a boolean, an "
                                    "integer, a float (d), a string or an array of strings",
                                    held));
    }
}

Value setting_from_variant(sd_bus_message& message, const std::string& key) {
    const std::string type = common::variant_type(message);
    check(sd_bus_message_enter_container(&message, SD_BUS_TYPE_VARIANT, type.c_str()),
          "cannot read a setting");
    Value value = setting_of_type(message, key, type);
    check(sd_bus_message_exit_container(&message), "cannot read a setting");
    return value;
}

}  // namespace

int append_settings(sd_bus_message& message, const SettingList& settings) {
    int r = sd_bus_message_open_container(&message, SD_BUS_TYPE_ARRAY, "{sv}");
    for (const auto& setting : settings) {
        if (r >= 0)
            r = sd_bus_message_open_container(&message, SD_BUS_TYPE_DICT_ENTRY, "sv");
        if (r >= 0)
            r = sd_bus_message_append_basic(&message, 's', setting.key().c_str());
        if (r >= 0)
            r = std::visit(Append{&message}, setting.value());
        if (r >= 0)
            r = sd_bus_message_close_container(&message);
    }
    return r < 0 ? r : sd_bus_message_close_container(&message);
}

SettingList settings_from_message(sd_bus_message& message) {
    SettingList settings;
    std::set<std::string> known;
    check(sd_bus_message_enter_container(&message, SD_BUS_TYPE_ARRAY, "{sv}"),
          "cannot read settings");
    while (check(sd_bus_message_enter_container(&message, SD_BUS_TYPE_DICT_ENTRY, "sv"),
                 "cannot read settings") > 0) {
        const std::string key = common::read_string(message);
        if (!known.insert(key).second)
            refuse(key, "is given twice");
        settings.emplace_back(key, setting_from_variant(message, key));
        check(sd_bus_message_exit_container(&message), "cannot read settings");
    }
    check(sd_bus_message_exit_container(&message), "cannot read settings");
    return settings;
}

}  // namespace host
