#pragma once

#include <functional>

#include "common/text/json.hpp"
#include "fenwa/block_configuration.hpp"
#include "host/check/inspection.hpp"

namespace host {

/// Builds a block of the type with these settings and says what was seen of it.
using TryBlock = std::function<BlockSeen(const Fenwa::BlockConfiguration& settings)>;

/// Finds out what a block type has to offer by building it again and again: without settings; with
/// other values for its required keys where it does not take the zero ones; and with each boolean
/// key toggled, because other keys, ports and objects may depend on it. Bounded, also where
/// keys lead to ever more keys.
/// @returns {"inputs", …} as in `inspect_plugin`, without the type's name.
[[nodiscard]] common::Json explore_type(const TryBlock& try_block);

/// Whether a type was built and did nothing that it should not. That it throws with a boolean
/// toggled is its right: the values that go with it may be missing.
[[nodiscard]] bool behaved(const common::Json& type);

}  // namespace host
