#pragma once

#include <toml++/toml.h>

#include <optional>
#include <string>

#include "common/text/diagnostics.hpp"
#include "host/graph/graph.hpp"

namespace host {

/// Reads a graph file. Every mistake of its form (syntax, unknown keys, values of a wrong kind, a
/// block without a type, a connection that is not "BLOCK.PORT") becomes a diagnostic; what can be
/// used is returned all the same, so that the names in it can be checked too. Nothing is returned
/// where the file could not be parsed.
/// @throws common::Failure (unreadable) when the file cannot be read.
[[nodiscard]] std::optional<Graph> read_graph(const std::string& path,
                                              common::Diagnostics& diagnostics);

/// The value of a setting, or nothing, with a diagnostic, for a kind that no block can be given.
[[nodiscard]] std::optional<Fenwa::BlockConfiguration::Value> read_setting(
    const std::string& key, const toml::node& node, common::Diagnostics& diagnostics);

}  // namespace host
