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

/// Where a running camera takes orders (`fenwa-camera set`, `stop`, `fail` …).
inline constexpr BusObject camera_control{"com.tarlo.Fenwa.Camera1", "/com/tarlo/Fenwa/Camera1",
                                          "com.tarlo.Fenwa.Camera1"};

}  // namespace camera
