#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "camera/service/event_log.hpp"
#include "common/process/exit_code.hpp"
#include "common/text/terminal.hpp"

namespace camera {

/// What `fenwa-camera run` was asked for.
struct RunOptions {
    std::string bus = "system";           ///< "system", "session" or an address
    bool private_bus = false;             ///< a daemon of our own in place of `bus`
    std::string socket_path;              ///< where that daemon listens; empty: a folder of its own
    bool system_allowed = false;          ///< to play on the machine's own system bus
    std::optional<std::string> config;    ///< camera configuration file
    std::optional<std::string> scenario;  ///< scenario file
    std::vector<std::string> without;     ///< services that are not there
    bool activation = true;               ///< calls bring services up that are down
    Format format = Format::text;
    common::ColorChoice color = common::ColorChoice::automatic;
    std::vector<std::vector<std::string>>
        children{};  ///< programs, with arguments, to run on the bus
};

/// Plays the camera until a signal, the end of the scenario, the loss of the bus, or until a
/// program program ends with a failure or the last one without. Children that still run are asked
/// to end before the camera does.
/// @returns `done`, the exit code of the first program that has failed, or `misconfigured` after
/// the mistakes of the files
///          were printed on stderr.
/// @throws common::Failure for everything else, with a sentence.
[[nodiscard]] common::ExitCode run_camera(const RunOptions& options);

}  // namespace camera
