#pragma once

#include "fenwa/bus_call.hpp"

namespace blocks {

/// The part of the platform's power controller that divides power among its consumers.
inline constexpr Fenwa::BusService power_control_consumer{"com.tarlo.PowerControl.Consumer",
                                                          "/com/tarlo/PowerControl/Consumer",
                                                          "com.tarlo.PowerControl.Consumer"};

/// The part that reports the power that the camera receives.
inline constexpr Fenwa::BusService power_control_status{"com.tarlo.PowerControl.Status",
                                                        "/com/tarlo/PowerControl/Status",
                                                        "com.tarlo.PowerControl.Status"};

}  // namespace blocks
