#pragma once

#include <cstddef>

#include "common/diagnostics.hpp"
#include "fenwa/block_configuration.hpp"
#include "host/block_types.hpp"
#include "host/graph.hpp"

namespace host {

/// How a dry construction of all blocks went, beyond the diagnostics.
struct CheckResult {
    /// Blocks that threw something other than a ConfigurationError.
    std::size_t throws = 0;
};

/// Before a run, what a block throws without a bus is left to the real construction.
enum class Strictness { alone, before_a_run };

/// Constructs every block against a bus that is not there and sets it up, and says of each mistake
/// where it is: unknown types, missing, mistyped and unread keys, wrong terminations, unknown
/// ports, datatypes that differ, inputs with two connections, objects that two blocks export.
/// Nothing of the blocks is heard or kept.
CheckResult check_graph(const Graph& graph, const BlockTypes& types, tool::Diagnostics& diagnostics,
                        Strictness strictness);

/// Reports a ConfigurationError of a block at its key, or at the block where the key is missing.
void report(const Fenwa::ConfigurationError& error, const BlockEntry& entry,
            tool::Diagnostics& diagnostics);

}  // namespace host
