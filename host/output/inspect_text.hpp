#pragma once

#include <string>

#include "common/text/json.hpp"
#include "common/text/terminal.hpp"

namespace host {

/// The "types" of `inspect_plugin` for people: a paragraph a type, a line a port or key, in
/// columns. Parts that a type does not have are left out.
[[nodiscard]] std::string types_as_text(const common::Json& types, const common::Palette& colors);

}  // namespace host
