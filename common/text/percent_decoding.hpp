#pragma once

#include <string>
#include <string_view>

namespace common {

/// A text with its %XX undone, as in D-Bus addresses and URLs; anything else stays as it is.
[[nodiscard]] std::string percent_decoded(std::string_view text);

}  // namespace common
