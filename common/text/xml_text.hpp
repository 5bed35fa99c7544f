#pragma once

#include <string>
#include <string_view>

namespace common {

/// The text as it appears between XML tags.
[[nodiscard]] std::string xml_escaped(std::string_view text);

}  // namespace common
