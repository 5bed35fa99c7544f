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

/// Where clients add buttons to the camera's screen.
inline constexpr BusObject onscreen_controls{
    "com.tarlo.Onscreencontrols1", "/com/tarlo/Onscreencontrols1", "com.tarlo.Onscreencontrols1"};

/// Where clients put texts on the video.
inline constexpr BusObject text_overlay{"com.tarlo.PrioritizedTextOverlay",
                                        "/com/tarlo/PrioritizedTextOverlay/1",
                                        "com.tarlo.PrioritizedTextOverlay"};

/// Where clients say that there is video; the path is that of all channels, "/N" behind it makes
/// the object of one.
inline constexpr BusObject video_ready{"com.tarlo.VideoReady1", "/com/tarlo/VideoReady1",
                                       "com.tarlo.VideoReady1"};

/// The manager of the init system.
inline constexpr BusObject init_manager{"org.freedesktop.systemd1", "/org/freedesktop/systemd1",
                                        "org.freedesktop.systemd1.Manager"};

/// Where a running camera takes orders (`fenwa-camera set`, `stop`, `fail` …).
inline constexpr BusObject camera_control{"com.tarlo.Fenwa.Camera1", "/com/tarlo/Fenwa/Camera1",
                                          "com.tarlo.Fenwa.Camera1"};

}  // namespace camera
