#pragma once

#include <string>
#include <vector>

#include "common/text/diagnostics.hpp"
#include "host/graph/graph.hpp"

namespace host {

/// Whether two blocks are given the same, in whatever order; NaN is the same as NaN.
[[nodiscard]] bool same_settings(const BlockEntry& a, const BlockEntry& b);

/// Says of everything in which `next` differs from `now`, other than in the settings of blocks,
/// that it needs a restart: an error at its place in the file of `next`, or at the whole file for
/// what is not there any more. The order of plug-ins, names, blocks and connections makes no
/// difference.
/// @returns the blocks that are in both and whose settings differ, in the order of `next`.
[[nodiscard]] std::vector<std::string> compare_graphs(const Graph& now, const Graph& next,
                                                      common::Diagnostics& diagnostics);

}  // namespace host
