#pragma once

#include "common/text/diagnostics.hpp"
#include "host/check/graph_check.hpp"
#include "host/graph/graph.hpp"
#include "host/plugin/type_data.hpp"

namespace host {

/// Warns of a graph that cannot work, as far as the data of its block types tell: values out of
/// range or out of order, bus names that the graph does not own, types of which a host can have one
/// block, and unconnected inputs that are not optional.
/// @param blocks the findings about the blocks to be checked: all of the graph, or some.
void check_types(const Graph& graph, const BlockReports& blocks, const TypeCatalog& catalog,
                 common::Diagnostics& diagnostics);

/// Warns of settings of one block that are out of range or out of order.
void check_settings(const BlockEntry& entry, const BlockReport& report, const TypeCatalog& catalog,
                    common::Diagnostics& diagnostics);

}  // namespace host
