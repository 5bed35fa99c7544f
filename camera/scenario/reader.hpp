#pragma once

#include <string>

#include "camera/camera/camera.hpp"
#include "camera/scenario/scenario.hpp"
#include "common/text/diagnostics.hpp"

namespace camera {

/// Reads a scenario and checks every name in it against the camera. Each mistake becomes a
/// diagnostic; a scenario with mistakes must not be played.
///
///     [[steps]]
///     at = 2.0                            # seconds since the scenario began
///     say = "It gets warmer."
///     set = {"temperature.main" = 71.5}
///     [[steps]]
///     after = 1.0                         # seconds since the previous step was done
///     restart = "temperature"             # also start, stop
///     [[steps]]
///     expect = {call = "GetTemperature", arguments = [3, "main"], within = 5.0}
///
/// Further actions: ramp = {NAME = TARGET, over = SECONDS}, fail = {member = …, …},
/// clear = MEMBER, press = BUTTON, run = [PROGRAM, …], expect = {state = NAME, is = VALUE},
/// expect = {output = BLOCK.PORT, …}, reply = {call = …, values = […]}, signal = {member = …, …},
/// call = {member = …, to = NAME, …}. Besides the steps: timeout = SECONDS, down = [SERVICE, …],
/// activatable = [SERVICE, …].
/// @throws common::Failure as `common::read_toml`.
[[nodiscard]] Scenario read_scenario(const std::string& path, const Camera& camera,
                                     common::Diagnostics& diagnostics);

}  // namespace camera
