#pragma once

#include <string>
#include <vector>

#include "camera/models/temperature.hpp"
#include "common/text/diagnostics.hpp"

namespace camera {

/// The camera's power, in the unit that the user thinks in; nothing is converted.
struct Power {
    double budget = 20.0;    ///< what consumers share; finite and at least 0
    double received = 25.0;  ///< what comes in, any double; the budget does not depend on it
};

/// The camera's video.
struct Video {
    /// More are refused: each channel is an object on the bus.
    static constexpr int max_channels = 64;

    int channels = 2;              ///< 1 to `max_channels`; they are counted from 0
    std::string unit = "enabled";  ///< state of the unit file "video-ready.service"
};

/// What a camera is made of.
struct Configuration {
    std::vector<Sensor> sensors;
    Power power{};
    Video video{};
};

/// The camera that serves without a file: sensors "main" (id 3, 36.5), "lens" (id 4, 28.0) and
/// "housing" (id 5, 21.5); it receives a power of 25 and has a budget of 20 for its consumers; two
/// channels of video, whose unit is enabled.
[[nodiscard]] Configuration default_configuration();

/// Reads a camera from a TOML file:
///
///     [[sensors]]
///     name = "main"
///     id = 3
///     temperature = 36.5
///
///     [power]
///     budget = 20
///     received = 25
///
///     [video]
///     channels = 2
///     unit = "enabled"
///
/// What the file leaves out is as in the default. Every mistake becomes a diagnostic; what could
/// be read all the same is returned, so that a scenario can be checked against it.
/// @throws common::Failure (unreadable) when the file cannot be read.
[[nodiscard]] Configuration read_configuration(const std::string& path,
                                               common::Diagnostics& diagnostics);

}  // namespace camera
