#pragma once

#include <string>

#include "host/draw/diagram.hpp"

namespace host {

/// The picture as a text of Graphviz's DOT language, for its program `dot`. Any name is drawn as it
/// is; control characters become escapes, bytes that are not UTF-8 U+FFFD.
[[nodiscard]] std::string to_dot(const Diagram& diagram);

}  // namespace host
