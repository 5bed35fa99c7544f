#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tool {

/// "did you mean 'NAME'?" with the candidate nearest to `typed` (edit distance, transpositions
/// count as one), or an empty string where none is near: at most a third of the letters may differ.
[[nodiscard]] std::string did_you_mean(std::string_view typed,
                                       const std::vector<std::string>& candidates);

/// A sentence with a further one, such as the one above, behind a semicolon; alone where that one
/// is empty.
[[nodiscard]] std::string with_help(std::string sentence, std::string_view help);

}  // namespace tool
