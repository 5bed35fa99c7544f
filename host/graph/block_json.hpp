#pragma once

#include "common/text/json.hpp"
#include "host/graph/connections.hpp"
#include "host/graph/graph.hpp"

namespace host {

/// The ports and exported objects of a block as they are now, each in the order in which the block
/// added them:
///
///     {"inputs": [{"name", "type", "triggers", "value"}, …],
///      "terminated_inputs": [{"name", "type", "value"}, …],
///      "outputs": [{"name", "type", "value"}, …],
///      "exports": [{"path", "interface"}, …]}
///
/// Types and values stand as in event lines: the value is null where the host does not know the
/// datatype. "terminated_inputs" are those that the host provides on the block's behalf, "exports"
/// the objects that it has asked to export.
[[nodiscard]] common::Json describe_ports(const ConnectableBlock& block);

/// A block of a graph: {"name", "type", "settings": {KEY: VALUE, …}} and its ports.
/// @param block its `block` may be null: then there are no ports.
/// @param settings those that it has, its own defaults included.
[[nodiscard]] common::Json describe_block(const BlockEntry& entry, const ConnectableBlock& block,
                                          const Fenwa::BlockConfiguration& settings);

/// [{"from": "BLOCK.PORT", "to": "BLOCK.PORT"}, …]
[[nodiscard]] common::Json describe_connections(const Graph& graph);

}  // namespace host
