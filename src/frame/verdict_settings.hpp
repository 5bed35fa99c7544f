#pragma once

#include <string>

#include "fenwa/block_configuration.hpp"

namespace blocks {

/// The settings in which a block publishes its verdict: the verdict, and a boolean input that the
/// framework terminates on the block's behalf, with the verdict as its default.
/// @param verdict_key key of the verdict, such as "power_ok".
/// @param input name of the terminated input.
[[nodiscard]] Fenwa::BlockConfiguration verdict_settings(const std::string& verdict_key,
                                                         const std::string& input, bool verdict);

}  // namespace blocks
