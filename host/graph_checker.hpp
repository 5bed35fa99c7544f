#pragma once

#include <cstddef>
#include <functional>

#include "common/diagnostics.hpp"
#include "host/block_types.hpp"
#include "host/connection_checker.hpp"
#include "host/dry_construction.hpp"
#include "host/graph.hpp"

namespace host {

/// How a dry construction of all blocks went, beyond the diagnostics.
struct CheckResult {
    /// Blocks that threw something other than a ConfigurationError.
    std::size_t throws = 0;
};

/// Looks at the dry blocks of a graph while they are there.
using BlocksLook = std::function<void(const BlocksByName& blocks)>;

/// Constructs every block against a bus that is not there and sets it up, and says of each mistake
/// where it is: those that a DryConstruction finds, unknown ports, datatypes that differ, inputs
/// with two connections, objects that two blocks export. Nothing of the blocks is heard or kept.
/// @param look called at the end, if anything.
CheckResult check_graph(const Graph& graph, const BlockTypes& types, tool::Diagnostics& diagnostics,
                        Strictness strictness, const BlocksLook& look = {});

}  // namespace host
