#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/bus/control_client.hpp"
#include "common/cli/command_line.hpp"
#include "host/control/names.hpp"

namespace host {

// The commands of `fenwa`.
[[nodiscard]] common::Command run_command();
[[nodiscard]] common::Command check_command();
[[nodiscard]] common::Command read_command();
[[nodiscard]] common::Command write_command();
[[nodiscard]] common::Command set_command();
[[nodiscard]] common::Command watch_command();
[[nodiscard]] common::Command inspect_command();
[[nodiscard]] common::Command list_command();
[[nodiscard]] common::Command graph_command();
[[nodiscard]] common::Command status_command();
[[nodiscard]] common::Command new_command();

// What several commands have in common. Each variable outlives the command.

/// The argument GRAPH.
[[nodiscard]] common::Option graph_argument(std::string& graph);
/// `--plugin-dir DIR`, any number of times.
[[nodiscard]] common::Option plugin_dir_option(std::vector<std::string>& plugin_dirs);
/// `--control[=NAME]`.
/// @param name stays empty without the option.
[[nodiscard]] common::Option control_flag(std::optional<std::string>& name,
                                          const std::string& help);

/// The running host that a command calls.
struct ControlTarget {
    std::string bus = "system";       ///< "system", "session" or an address
    std::string name = control_name;  ///< bus name of its control interface
};

/// `--bus ADDRESS`.
[[nodiscard]] common::Option target_bus_option(ControlTarget& target);
/// `--control NAME`.
[[nodiscard]] common::Option target_name_option(ControlTarget& target);

/// Connects to a running host; errors as of common::ControlClient: `usage` for a refused call,
/// `software` if a block threw.
[[nodiscard]] common::ControlClient connect_to_host(const ControlTarget& target);

}  // namespace host
