#pragma once

#include <fnmatch.h>

#include <algorithm>
#include <string>
#include <vector>

namespace common {

/// Whether a text matches a pattern of glob(7), in which '*' stands for dots and slashes too.
[[nodiscard]] inline bool matches(const std::string& text, const std::string& glob) {
    return fnmatch(glob.c_str(), text.c_str(), 0) == 0;
}

/// Whether a text matches one of several patterns; without any it does.
[[nodiscard]] inline bool matches(const std::string& text, const std::vector<std::string>& globs) {
    return globs.empty() || std::any_of(globs.begin(), globs.end(), [&](const std::string& glob) {
               return matches(text, glob);
           });
}

/// Whether a text is a pattern, and not the only name that matches it.
[[nodiscard]] inline bool is_glob(const std::string& text) {
    return text.find_first_of("*?[\\") != std::string::npos;
}

}  // namespace common
