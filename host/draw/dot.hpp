#pragma once

#include <string>

#include "host/draw/diagram.hpp"

namespace host {

/// The picture as a text of Graphviz's DOT language, for its program `dot`. Any name is drawn as it
/// is; control characters stand as escapes, bytes that are no UTF-8 as U+FFFD.
[[nodiscard]] std::string to_dot(const Diagram& picture);

}  // namespace host
