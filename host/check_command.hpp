#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/diagnostics.hpp"
#include "common/exit_code.hpp"
#include "common/terminal.hpp"
#include "host/block_types.hpp"
#include "host/graph.hpp"
#include "host/graph_checker.hpp"

namespace host {

/// What `fenwa check` was asked for.
struct CheckOptions {
    std::string graph;
    std::vector<std::string> plugin_dirs;
    bool deny_warnings = false;
    tool::ColorChoice color = tool::ColorChoice::automatic;
};

/// A graph with how its check ended; all mistakes are in the diagnostics.
struct CheckedGraph {
    std::optional<Graph> graph;
    tool::ExitCode code;
};

/// Looks at a graph and at its dry blocks while they are there.
using GraphLook = std::function<void(const Graph& graph, const BlocksByName& blocks)>;

/// Loads the plug-ins of a graph that has been read, with its mistakes of form in the diagnostics,
/// and checks all of it.
[[nodiscard]] CheckedGraph check_read_graph(std::optional<Graph> graph,
                                            const std::vector<std::string>& plugin_dirs,
                                            BlockTypes& types, tool::Diagnostics& diagnostics,
                                            Strictness strictness, const GraphLook& look = {});

/// Reads a graph, loads its plug-ins and checks all of it.
/// @param look called at the end, unless the graph cannot be read; may be empty.
/// @throws tool::Failure (unreadable) when the file cannot be read.
[[nodiscard]] CheckedGraph read_and_check(const std::string& path,
                                          const std::vector<std::string>& plugin_dirs,
                                          BlockTypes& types, tool::Diagnostics& diagnostics,
                                          Strictness strictness, const GraphLook& look = {});

/// Reports every mistake of a graph on stderr.
/// @throws tool::Failure (unreadable) when the file cannot be read.
[[nodiscard]] tool::ExitCode check_graph_file(const CheckOptions& options);

}  // namespace host
