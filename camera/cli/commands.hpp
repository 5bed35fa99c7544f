#pragma once

#include <string>
#include <vector>

#include "common/cli/command_line.hpp"

namespace camera {

/// The services as `--help` lists them.
inline constexpr const char* service_names =
    "temperature, power-consumer, power-status, controls, overlay, video, init";

/// Takes each `-- PROGRAM ARGUMENT…` off a command line that begins with `run`: the options of a
/// program are not ours, and an option of ours that takes several words must not take them. A `--`
/// with nothing at all after it gives no program.
[[nodiscard]] std::vector<std::vector<std::string>> take_children(int& argc, char** argv);

// The commands of `fenwa-camera`.

/// @param children programs, with their arguments, to run on the camera's bus.
[[nodiscard]] common::Command run_command(std::vector<std::vector<std::string>> children);
[[nodiscard]] common::Command set_command();
[[nodiscard]] common::Command start_command();
[[nodiscard]] common::Command stop_command();
[[nodiscard]] common::Command restart_command();
[[nodiscard]] common::Command press_command();
[[nodiscard]] common::Command fail_command();
[[nodiscard]] common::Command show_command();
[[nodiscard]] common::Command record_command();
/// For the service files of a private bus. The bus daemon takes exit code 1 for a service that does
/// not start.
[[nodiscard]] common::Command activate_command();

}  // namespace camera
