#pragma once

#include "src/frame/bus_call.hpp"

namespace blocks {

/// The part of the platform's power controller that divides power among its consumers.
inline constexpr BusService power_control_consumer{"com.tarlo.PowerControl.Consumer",
                                                   "/com/tarlo/PowerControl/Consumer",
                                                   "com.tarlo.PowerControl.Consumer"};

/// The part that tells how much power the camera receives.
inline constexpr BusService power_control_status{"com.tarlo.PowerControl.Status",
                                                 "/com/tarlo/PowerControl/Status",
                                                 "com.tarlo.PowerControl.Status"};

}  // namespace blocks
