#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <string>
#include <type_traits>

#include "common/bus/bus.hpp"

namespace camera {

/// Reads the next argument of a message: a string, a bool, an int32, a uint32 or a double.
/// @throws std::system_error when the argument has another type.
template <class T>
[[nodiscard]] T argument(sd_bus_message& message) {
    const auto read = [&message](char type, auto value) {
        common::check(sd_bus_message_read_basic(&message, type, &value),
                      "sd_bus_message_read_basic");
        return value;
    };
    if constexpr (std::is_same_v<T, std::string>)
        return common::read_string(message);
    else if constexpr (std::is_same_v<T, bool>)
        return read(SD_BUS_TYPE_BOOLEAN, 0) != 0;
    else if constexpr (std::is_same_v<T, std::int32_t>)
        return read(SD_BUS_TYPE_INT32, T{});
    else if constexpr (std::is_same_v<T, std::uint32_t>)
        return read(SD_BUS_TYPE_UINT32, T{});
    else {
        static_assert(std::is_same_v<T, double>);
        return read(SD_BUS_TYPE_DOUBLE, T{});
    }
}

}  // namespace camera
