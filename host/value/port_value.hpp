#pragma once

#include <string>
#include <variant>
#include <vector>

#include "common/text/json.hpp"
#include "fenwa/block_configuration.hpp"
#include "fenwa/datatype.hpp"
#include "fenwa/debug_data.hpp"

namespace host {

/// The value of a port of one of the well-known datatypes; std::monostate for any other.
using PortValue =
    std::variant<std::monostate, bool, int, float, double, Fenwa::datatype_timersource>;

/// Reads the value that a port of this datatype keeps at `address`.
[[nodiscard]] PortValue read_value(const Fenwa::Datatype& datatype, const void* address);

/// The value that a port of this datatype holds before one has come: the type's T{}.
[[nodiscard]] PortValue default_value(const Fenwa::Datatype& datatype);

/// A setting as a value of this datatype, as strictly as the getters of blocks.
/// @throws Fenwa::ConfigurationError when the key is missing or of another type; a timersource is
///         a type that no setting has. Of an unknown datatype nothing is read.
[[nodiscard]] PortValue read_setting(const Fenwa::Datatype& datatype,
                                     const Fenwa::BlockConfiguration& settings,
                                     const std::string& key);

/// Where the value stands that a PortValue holds, as a port of its datatype reads it.
[[nodiscard]] const void* address_of(const PortValue& value);

/// Paths of the well-known datatypes.
[[nodiscard]] std::vector<std::string> known_datatypes();

/// "float", "bool", "double", "int", "timersource", or the path of another datatype.
[[nodiscard]] std::string type_name(const Fenwa::Datatype& datatype);

/// The datatype of which `type_name` gives this name.
[[nodiscard]] Fenwa::Datatype datatype_named(const std::string& name);

/// Values as they stand in event lines. A float is written as the double of the same value.
[[nodiscard]] common::Json to_json(const PortValue& value);
[[nodiscard]] common::Json to_json(const Fenwa::DebugValue& value);
[[nodiscard]] common::Json to_json(const Fenwa::BlockConfiguration::Value& value);
[[nodiscard]] common::Json to_json(const Fenwa::BlockConfiguration& settings);

}  // namespace host
