#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tool {

/// "did you mean 'NAME'?" with the candidate nearest to `typed` (edit distance, transpositions
/// count as one), or an empty string where none is near: at most a third of the letters may differ.
[[nodiscard]] std::string did_you_mean(std::string_view typed,
                                       const std::vector<std::string>& candidates);

}  // namespace tool
