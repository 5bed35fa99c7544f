#pragma once

#include "fenwa/bus_call.hpp"

namespace blocks {

/// The platform's service that reads the temperature sensors.
inline constexpr Fenwa::BusService temperature_controller{"com.tarlo.TemperatureController",
                                                          "/com/tarlo/TemperatureController",
                                                          "com.tarlo.TemperatureController"};

}  // namespace blocks
