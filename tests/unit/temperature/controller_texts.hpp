#pragma once

#include <systemd/sd-bus.h>

#include <limits>
#include <string>
#include <vector>

#include "fenwa/block_configuration.hpp"
#include "tests/support/bus_messages.hpp"

/// What the tests of the temperature blocks share.
namespace temperature_test {

using Entry = Fenwa::BlockConfiguration::KeyValue;
using Journal = std::vector<std::string>;
using Lines = std::vector<std::string>;

inline constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();
inline constexpr double infinity = std::numeric_limits<double>::infinity();

inline constexpr const char* controller_name = "com.tarlo.TemperatureController";
inline constexpr const char* controller_path = "/com/tarlo/TemperatureController";

/// A call of the temperature controller, with its arguments.
inline std::string controller_call(const std::string& call) {
    return "call com.tarlo.TemperatureController /com/tarlo/TemperatureController "
           "com.tarlo.TemperatureController " +
           call;
}

/// A match for one of its signals.
inline std::string controller_match(const std::string& signal) {
    return "match signal com.tarlo.TemperatureController /com/tarlo/TemperatureController "
           "com.tarlo.TemperatureController " +
           signal;
}

// What sd-bus never fills an error argument with; a callback takes it seriously all the same.
using support::denied;
inline constexpr sd_bus_error silent =
    SD_BUS_ERROR_MAKE_CONST("org.freedesktop.DBus.Error.NoReply", nullptr);

}  // namespace temperature_test
