#pragma once

#include <cstddef>

#include "common/text/diagnostics.hpp"
#include "host/check/graph_probe.hpp"
#include "host/graph/graph.hpp"

namespace host {

/// Probes the plug-ins and the blocks of a graph, and says of each mistake where it is: those that
/// `probe` finds, unknown ports, datatypes that differ, inputs with two connections, objects that
/// two blocks export. Nothing of it is loaded into this process, heard or kept.
/// @param look as in a ProbeJob.
[[nodiscard]] Probe check_graph(const Graph& graph, BlockTypes& types,
                                const std::vector<std::string>& plugin_dirs,
                                common::Diagnostics& diagnostics, Strictness strictness,
                                const BlockLook& look = {});

}  // namespace host
