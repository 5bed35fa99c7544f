#pragma once

#include <cstddef>
#include <string_view>

#include "common/text/diagnostics.hpp"

namespace common {

/// Where a TOML text first nests deeper than `limit` tables and arrays (dotted keys and header
/// parts count as tables), or line 0 where it never does. Looks at brackets, dots, strings and
/// comments only, so it also serves for texts that do not parse.
[[nodiscard]] SourceLocation find_deep_nesting(std::string_view text, std::size_t limit);

}  // namespace common
