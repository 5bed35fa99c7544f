#pragma once

#include <string>

#include "host/value/port_value.hpp"

namespace host {

/// A value for people and scripts: a number or a word ("true", "nan", "inf", "-inf") as it is
/// typed, any other value as JSON.
[[nodiscard]] std::string to_text(const PortValue& value);

/// "<NAME>", in place of a value of a datatype that the host does not know.
/// @param type its name as `type_name` returns it.
[[nodiscard]] std::string unknown_value_text(const std::string& type);

/// Reads a typed value of the type of `like`, which is a bool, an int, a float or a double: "true",
/// "false", "-7", "36.5", "1e-3", "nan", "inf", "-inf".
/// @throws common::Failure (usage) with a sentence that names the accepted values.
[[nodiscard]] PortValue from_text(const std::string& text, const PortValue& like);

}  // namespace host
