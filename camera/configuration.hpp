#pragma once

#include <string>
#include <vector>

#include "camera/temperature_model.hpp"
#include "common/diagnostics.hpp"

namespace camera {

/// What a camera is made of.
struct Configuration {
    std::vector<Sensor> sensors;
};

/// The camera that serves without a file: sensors "main" (id 3, 36.5), "lens" (id 4, 28.0) and
/// "housing" (id 5, 21.5).
[[nodiscard]] Configuration default_configuration();

/// Reads a camera from a TOML file:
///
///     [[sensors]]
///     name = "main"
///     id = 3
///     temperature = 36.5
///
/// What the file leaves out is as in the default. Every mistake becomes a diagnostic; what could
/// be read all the same is returned, so that a scenario can be checked against it.
/// @throws tool::Failure (unreadable) when the file cannot be read.
[[nodiscard]] Configuration read_configuration(const std::string& path,
                                               tool::Diagnostics& diagnostics);

}  // namespace camera
