#pragma once

#include <string>

#include "host/value/port_value.hpp"

namespace host {

/// A value as people and scripts read it: a number or a word ("true", "nan", "inf", "-inf") as it
/// is typed, anything else as JSON.
[[nodiscard]] std::string to_text(const PortValue& value);

/// Reads a value that somebody typed, of the same type as `like`, a bool, an int, a float or a
/// double: "true", "false", "-7", "36.5", "1e-3", "nan", "inf", "-inf".
/// @throws common::Failure (usage) with a sentence that says what can be typed.
[[nodiscard]] PortValue from_text(const std::string& text, const PortValue& like);

}  // namespace host
