#pragma once

#include <string>
#include <string_view>

namespace common {

/// The text as it appears between XML tags.
[[nodiscard]] std::string xml_escaped(std::string_view text);

/// The text as it appears in double quotes as an attribute. Characters that XML cannot hold become
/// visible, as `one_line` has it.
[[nodiscard]] std::string xml_attribute(std::string_view text);

}  // namespace common
