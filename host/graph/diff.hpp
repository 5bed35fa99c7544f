#pragma once

#include <string>
#include <vector>

#include "common/text/diagnostics.hpp"
#include "host/graph/graph.hpp"

namespace host {

/// Whether two blocks have the same settings, in any order; NaN equals NaN.
[[nodiscard]] bool same_settings(const BlockEntry& a, const BlockEntry& b);

/// Compares two graphs; the order of plug-ins, names, blocks and connections is ignored. Each
/// difference other than in settings needs a restart and is an error at its place in the file of
/// `next`, or at the whole file for a part that `next` lacks.
/// @returns the blocks that are in both and whose settings differ, in the order of `next`.
[[nodiscard]] std::vector<std::string> compare_graphs(const Graph& now, const Graph& next,
                                                      common::Diagnostics& diagnostics);

}  // namespace host
