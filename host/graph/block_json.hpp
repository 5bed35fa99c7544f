#pragma once

#include <vector>

#include "common/text/json.hpp"
#include "host/graph/graph.hpp"
#include "host/graph/ports.hpp"

namespace host {

/// The ports and exported objects of a block, each in the order in which the block added them:
///
///     {"inputs": [{"name", "type", "triggers", "value"}, …],
///      "terminated_inputs": [{"name", "type", "value"}, …],
///      "outputs": [{"name", "type", "value"}, …],
///      "exports": [{"path", "interface"}, …]}
///
/// Types and values are as in event lines: the value is null if the host does not know the
/// datatype. "terminated_inputs" are the inputs that the host provides on the block's behalf,
/// "exports" the objects that the block has asked to export.
/// @param block its `block` is not null.
[[nodiscard]] common::Json ports_to_json(const ConnectableBlock& block);

/// A block of a graph: {"name", "type", "settings": {KEY: VALUE, …}} and its ports.
/// @param block without ports if its `block` is null.
/// @param settings of the block, its own defaults included.
[[nodiscard]] common::Json to_json(const BlockEntry& entry, const ConnectableBlock& block,
                                   const Fenwa::BlockConfiguration& settings);

/// [{"from": "BLOCK.PORT", "to": "BLOCK.PORT"}, …]
[[nodiscard]] common::Json to_json(const std::vector<Connection>& connections);

}  // namespace host
