#pragma once

#include "common/text/json.hpp"
#include "host/runtime/running_graph.hpp"

namespace host {

/// A running graph as it is now, blocks in file order:
///
///     {"blocks": [{"name", "type", "settings": {KEY: VALUE, …},
///                  "inputs": [{"name", "type", "triggers", "value"}, …],
///                  "terminated_inputs": [{"name", "type", "value"}, …],
///                  "outputs": [{"name", "type", "value"}, …],
///                  "exports": [{"path", "interface"}, …], "services": [NAME, …]}, …],
///      "connections": [{"from": "BLOCK.PORT", "to": "BLOCK.PORT"}, …]}
///
/// Types and values stand as in event lines: the value is null where the host does not know the
/// datatype. The settings are those that the block runs with, its own defaults included;
/// "terminated_inputs" are those that the host provides on its behalf. "services" are the bus names
/// that the block has called or listens to, in the order of the first time, without the bus daemon
/// and unique names; "exports" the objects that it has asked to export.
[[nodiscard]] common::Json describe(const RunningGraph& graph);

}  // namespace host
