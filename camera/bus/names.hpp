#pragma once

namespace camera {

/// The names of one object of a service on the bus.
struct BusObject {
    const char* name;       ///< well-known bus name
    const char* path;       ///< object path
    const char* interface;  ///< interface name
};

/// The temperature controller of the camera platform.
inline constexpr BusObject temperature_controller{"com.tarlo.TemperatureController",
                                                  "/com/tarlo/TemperatureController",
                                                  "com.tarlo.TemperatureController"};

/// The power controller, for consumers that register and ask for power.
inline constexpr BusObject power_consumers{"com.tarlo.PowerControl.Consumer",
                                           "/com/tarlo/PowerControl/Consumer",
                                           "com.tarlo.PowerControl.Consumer"};

/// The power controller, for readers of the power that the camera receives.
inline constexpr BusObject power_status{"com.tarlo.PowerControl.Status",
                                        "/com/tarlo/PowerControl/Status",
                                        "com.tarlo.PowerControl.Status"};

/// The buttons on the camera's screen.
inline constexpr BusObject onscreen_controls{
    "com.tarlo.Onscreencontrols1", "/com/tarlo/Onscreencontrols1", "com.tarlo.Onscreencontrols1"};

/// The texts on the video.
inline constexpr BusObject text_overlay{"com.tarlo.PrioritizedTextOverlay",
                                        "/com/tarlo/PrioritizedTextOverlay/1",
                                        "com.tarlo.PrioritizedTextOverlay"};

/// The reports of clients that there is video. The path of one channel has "/N" after this one.
inline constexpr BusObject video_ready{"com.tarlo.VideoReady1", "/com/tarlo/VideoReady1",
                                       "com.tarlo.VideoReady1"};

/// The manager of the init system.
inline constexpr BusObject init_manager{"org.freedesktop.systemd1", "/org/freedesktop/systemd1",
                                        "org.freedesktop.systemd1.Manager"};

/// The control interface of a running camera (`fenwa-camera set`, `stop`, `fail` …).
inline constexpr BusObject camera_control{"com.tarlo.Fenwa.Camera1", "/com/tarlo/Fenwa/Camera1",
                                          "com.tarlo.Fenwa.Camera1"};

}  // namespace camera
