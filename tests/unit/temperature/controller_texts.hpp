#pragma once

#include <string>

#include "tests/unit/block_fixture.hpp"

/// Shared by the tests of the temperature blocks.
namespace temperature_test {

using namespace support;  // NOLINT(google-build-using-namespace): a namespace of tests

inline constexpr const char* controller_name = "com.tarlo.TemperatureController";
inline constexpr const char* controller_path = "/com/tarlo/TemperatureController";

/// A call of the temperature controller, with its arguments.
inline std::string controller_call(const std::string& call) {
    return service_call(controller_name, controller_path, call);
}

/// A match for one of its signals.
inline std::string controller_match(const std::string& signal) {
    return "match signal com.tarlo.TemperatureController /com/tarlo/TemperatureController "
           "com.tarlo.TemperatureController " +
           signal;
}

/// A signal of the controller.
template <class... Values>
MakeMessage signal_of(const std::string& member, const char* types, Values... values) {
    return [=](Messages& messages) {
        return messages.signal(controller_path, controller_name, member.c_str(), types, values...);
    };
}

}  // namespace temperature_test
