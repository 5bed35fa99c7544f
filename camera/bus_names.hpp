#pragma once

namespace camera {

/// What one object of a service is called on the bus.
struct BusObject {
    const char* name;       ///< well-known bus name
    const char* path;       ///< object path
    const char* interface;  ///< interface name
};

/// The temperature controller of the camera platform.
inline constexpr BusObject temperature_controller{"com.tarlo.TemperatureController",
                                                  "/com/tarlo/TemperatureController",
                                                  "com.tarlo.TemperatureController"};

/// Where consumers register and ask for power.
inline constexpr BusObject power_consumers{"com.tarlo.PowerControl.Consumer",
                                           "/com/tarlo/PowerControl/Consumer",
                                           "com.tarlo.PowerControl.Consumer"};

/// Where the power that the camera receives is shown.
inline constexpr BusObject power_status{"com.tarlo.PowerControl.Status",
                                        "/com/tarlo/PowerControl/Status",
                                        "com.tarlo.PowerControl.Status"};

/// Where a running camera takes orders (`fenwa-camera set`, `stop`, `fail` …).
inline constexpr BusObject camera_control{"com.tarlo.Fenwa.Camera1", "/com/tarlo/Fenwa/Camera1",
                                          "com.tarlo.Fenwa.Camera1"};

}  // namespace camera
