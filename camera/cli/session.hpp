#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/events/event_lines.hpp"
#include "common/process/exit_code.hpp"
#include "common/text/terminal.hpp"

namespace camera {

/// The options of `fenwa-camera run`.
struct RunOptions {
    std::string bus = "system";           ///< "system", "session" or an address
    bool private_bus = false;             ///< a daemon of our own in place of `bus`
    std::string socket_path;              ///< of that daemon; empty: in a folder of its own
    bool system_allowed = false;          ///< to play on the machine's own system bus
    std::optional<std::string> config;    ///< camera configuration file
    std::optional<std::string> scenario;  ///< scenario file
    std::vector<std::string> without;     ///< services that are not there
    std::optional<std::string> report;    ///< file for the results of the scenario
    bool no_activation = false;           ///< calls do not bring services up that are down
    bool verbose = false;                 ///< text tells each call, answer and signal
    common::EventFormat format = common::EventFormat::text;
    common::Timestamps timestamps = common::Timestamps::relative;
    common::ColorChoice color = common::ColorChoice::automatic;
    std::vector<std::vector<std::string>> children{};  ///< programs to run on the bus
};

/// Plays the camera until a signal, the end of the scenario, the loss of the bus, or until a
/// program ends with a failure or the last one without. Programs that still run are asked to end
/// before the camera does.
/// @returns `done`, the exit code of the first program that has failed, or `misconfigured` if the
///          files have mistakes.
[[nodiscard]] common::ExitCode run_camera(const RunOptions& options);

}  // namespace camera
