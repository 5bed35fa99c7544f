#pragma once

#include <string>
#include <variant>

#include "common/json_text.hpp"
#include "fenwa/block_configuration.hpp"
#include "fenwa/datatype.hpp"
#include "fenwa/debug_data.hpp"

namespace host {

/// The value of a port of one of the well-known datatypes; std::monostate for any other.
using PortValue =
    std::variant<std::monostate, bool, int, float, double, Fenwa::datatype_timersource>;

/// Reads the value that a port of this datatype keeps at `address`.
[[nodiscard]] PortValue read_value(const Fenwa::Datatype& datatype, const void* address);

/// "float", "bool", "double", "int", "timersource", or the path of another datatype.
[[nodiscard]] std::string type_name(const Fenwa::Datatype& datatype);

/// Values as they stand in event lines. A float is written as the double of the same value.
[[nodiscard]] tool::Json to_json(const PortValue& value);
[[nodiscard]] tool::Json to_json(const Fenwa::DebugValue& value);
[[nodiscard]] tool::Json to_json(const Fenwa::BlockConfiguration::Value& value);
[[nodiscard]] tool::Json to_json(const Fenwa::BlockConfiguration& settings);

}  // namespace host
