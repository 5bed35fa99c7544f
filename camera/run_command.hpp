#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "camera/story.hpp"
#include "common/exit_code.hpp"
#include "common/terminal.hpp"

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
    tool::ColorChoice color = tool::ColorChoice::automatic;
    std::vector<std::string> guest;  ///< program with its arguments to run on the bus; or none
};

/// Plays the camera until a signal, the end of the scenario, the end of the guest program or the
/// loss of the bus. Where a guest runs, it is asked to end before the camera does.
/// @returns `done`, the guest's own exit code, or `misconfigured` after the mistakes of the files
///          were printed on stderr.
/// @throws tool::Failure for everything else, with a sentence.
[[nodiscard]] tool::ExitCode run_camera(const RunOptions& options);

}  // namespace camera
