#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/process/exit_code.hpp"
#include "common/text/diagnostics.hpp"
#include "common/text/terminal.hpp"
#include "host/check/graph_checker.hpp"
#include "host/graph/graph.hpp"

namespace host {

/// What `fenwa check` was asked for.
struct CheckOptions {
    std::string graph;
    std::vector<std::string> plugin_dirs;
    bool deny_warnings = false;
    common::ColorChoice color = common::ColorChoice::automatic;
};

/// A graph with how its check ended; all mistakes are in the diagnostics.
struct CheckedGraph {
    std::optional<Graph> graph;
    Probe probe;
    common::ExitCode code;
};

/// Reads a graph and checks all of it; its plug-ins are loaded in a child process only.
/// @param look as in a ProbeJob.
/// @throws common::Failure (unreadable) when the file cannot be read; std::system_error when no
///         process can be made.
[[nodiscard]] CheckedGraph read_and_check(const std::string& path,
                                          const std::vector<std::string>& plugin_dirs,
                                          common::Diagnostics& diagnostics, Strictness strictness,
                                          const BlockLook& look = {});

/// Reports every mistake of a graph on stderr.
/// @throws as `read_and_check`.
[[nodiscard]] common::ExitCode check_graph_file(const CheckOptions& options);

}  // namespace host
