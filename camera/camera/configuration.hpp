#pragma once

#include <string>
#include <vector>

#include "camera/models/temperature.hpp"
#include "common/text/diagnostics.hpp"

namespace camera {

/// The camera's power, in the unit of the user; nothing is converted.
struct Power {
    double budget = 20.0;    ///< shared by the consumers; finite and at least 0
    double received = 25.0;  ///< any double; the budget does not depend on it
};

/// The camera's video.
struct Video {
    /// Each channel is an object on the bus.
    static constexpr int max_channels = 64;

    int channels = 2;              ///< 1 to `max_channels`; the first one is 0
    std::string unit = "enabled";  ///< state of the unit file "video-ready.service"
};

/// The configuration of a camera.
struct Configuration {
    std::vector<Sensor> sensors;
    Power power{};
    Video video{};
};

/// The camera without a file: sensors "main" (id 3, 36.5), "lens" (id 4, 28.0) and "housing" (id 5,
/// 21.5); a received power of 25 and a budget of 20; two channels of video, whose unit is enabled.
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
/// The defaults stand in for missing parts. Each mistake becomes a diagnostic; the readable rest is
/// returned, so that a scenario can be checked against it.
/// @throws common::Failure as `common::read_toml`.
[[nodiscard]] Configuration read_configuration(const std::string& path,
                                               common::Diagnostics& diagnostics);

}  // namespace camera
