#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/process/exit_code.hpp"
#include "common/text/diagnostics.hpp"
#include "host/check/graph_probe.hpp"
#include "host/graph/graph.hpp"

namespace host {

/// A graph with how its check ended; all mistakes are in the diagnostics.
struct CheckedGraph {
    std::optional<Graph> graph;
    ProbeResult probe;
    common::ExitCode code;
};

/// Probes the plug-ins and the blocks of a graph in a child process, and says of each mistake where
/// it is: those that `probe` finds, unknown ports, datatypes that differ, inputs with two
/// connections, objects that two blocks export.
/// @param look as in a ProbeJob.
[[nodiscard]] ProbeResult check_graph(const Graph& graph, BlockTypes& types,
                                      const std::vector<std::string>& plugin_dirs,
                                      common::Diagnostics& diagnostics, Strictness strictness,
                                      const BlockLook& look = {});

/// Reads a graph and checks it as `check_graph` does.
/// @param look as in a ProbeJob.
/// @throws common::Failure (unreadable) when the file cannot be read; std::system_error when no
///         process can be made.
[[nodiscard]] CheckedGraph read_and_check(const std::string& path,
                                          const std::vector<std::string>& plugin_dirs,
                                          common::Diagnostics& diagnostics, Strictness strictness,
                                          const BlockLook& look = {});

}  // namespace host
