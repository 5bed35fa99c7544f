#pragma once

#include <string>

#include "common/text/json.hpp"
#include "common/text/terminal.hpp"

namespace host {

/// "0 or more", "above 0, below 1", "1 to 5": an object of "min", "above", "max" and "below".
[[nodiscard]] std::string range_text(const common::Json& range);

/// "DESCRIPTION (RANGE, UNIT, …)" of a key or port of a type; empty if it has neither.
[[nodiscard]] std::string item_text(const common::Json& item);

/// The "types" of `inspect_plugin` for people: a paragraph a type, a line a port or key, in
/// columns, and below it its description. Parts that a type does not have are left out.
[[nodiscard]] std::string types_as_text(const common::Json& types, const common::Palette& colors);

}  // namespace host
