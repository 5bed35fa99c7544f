#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/process/exit_code.hpp"
#include "common/text/terminal.hpp"

namespace host {

/// What `fenwa graph` was asked for: the graph of a file or that of a running host.
struct GraphOptions {
    std::string graph;                   ///< the file; empty for a running host
    std::optional<std::string> control;  ///< bus name of the running host
    std::string bus = "system";          ///< where that is
    std::vector<std::string> plugin_dirs;
    std::optional<std::string> output;  ///< a file to render into, instead of DOT on stdout
    common::ColorChoice color = common::ColorChoice::automatic;
};

/// Draws a graph: one of a file with its ports, datatypes and connections as a check finds them;
/// one of a running host with its values, and the services that its blocks have talked to. The
/// mistakes of a file go to stderr; one with errors is not drawn.
/// @returns as `check` does for a file; what that throws is thrown too.
/// @throws common::Failure `usage` when none or both are asked for, `unreadable` when the file
/// cannot
///         be read, `unavailable` when there is no such host or it cannot be rendered.
[[nodiscard]] common::ExitCode draw_graph(const GraphOptions& options);

}  // namespace host
