#pragma once

#include <string>
#include <vector>

#include "common/text/diagnostics.hpp"
#include "host/graph/graph.hpp"

namespace host {

/// Whether two values of a setting are the same; NaN equals NaN.
[[nodiscard]] bool same_value(const Fenwa::BlockConfiguration::Value& a,
                              const Fenwa::BlockConfiguration::Value& b);

/// Whether two blocks have the same settings, in any order.
[[nodiscard]] bool same_settings(const BlockEntry& a, const BlockEntry& b);

/// The differences between a running graph and the file that takes its place; each list is in the
/// order of its file.
struct GraphDiff {
    std::vector<std::string> changed;    ///< blocks of both, of the same type, with other settings
    std::vector<std::string> retyped;    ///< blocks of both, of another type
    std::vector<std::string> added;      ///< blocks
    std::vector<std::string> removed;    ///< blocks
    std::vector<std::string> connected;  ///< "'BLOCK.PORT' to 'BLOCK.PORT'"
    std::vector<std::string> disconnected;  ///< "'BLOCK.PORT' from 'BLOCK.PORT'", the output first
};

/// Compares two graphs; the order of plug-ins, names, blocks and connections is ignored. Each
/// difference in plug-ins or the bus needs a restart and is an error at its place in the file of
/// `next`, or at the whole file for a part that `next` lacks.
[[nodiscard]] GraphDiff compare_graphs(const Graph& now, const Graph& next,
                                       common::Diagnostics& diagnostics);

}  // namespace host
