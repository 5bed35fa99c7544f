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

/// The value at an address; std::monostate if that is null.
using ValueReader = PortValue (*)(const void* address);
/// What reads the values of ports of this datatype; never null.
[[nodiscard]] ValueReader value_reader(const Fenwa::Datatype& datatype);
/// The value that a port of this datatype keeps at `address`; std::monostate if that is null.
[[nodiscard]] PortValue value_at(const Fenwa::Datatype& datatype, const void* address);

/// The value that a port of this datatype holds at first: the type's T{}.
[[nodiscard]] PortValue default_value(const Fenwa::Datatype& datatype);

/// A setting as a value of this datatype, converted as strictly as by the getters of blocks;
/// std::monostate for an unknown datatype.
/// @throws Fenwa::ConfigurationError if the key is missing or of another type, as every key is for
///         a timersource.
[[nodiscard]] PortValue value_from_config(const Fenwa::Datatype& datatype,
                                          const Fenwa::BlockConfiguration& settings,
                                          const std::string& key);

/// The address of the held value, for a port of its datatype to read; valid as long as `value`.
[[nodiscard]] const void* address_of(const PortValue& value);

/// Paths of the well-known datatypes.
[[nodiscard]] std::vector<std::string> known_datatypes();

/// "float", "bool", "double", "int", "timersource", or the path of another datatype.
[[nodiscard]] std::string type_name(const Fenwa::Datatype& datatype);

/// The datatype for which `type_name` returns this name.
[[nodiscard]] Fenwa::Datatype datatype_named(const std::string& name);

/// The value of this datatype for which `to_json` returns this; std::monostate for an unknown
/// datatype.
/// @throws common::Json::exception, common::JsonError if it is of another form.
[[nodiscard]] PortValue value_from_json(const Fenwa::Datatype& datatype, const common::Json& json);

/// Appends a value as a line of JSON: as `json_line(to_json(value))`, for lines that come quickly.
void append_json(std::string& line, const PortValue& value);
void append_json(std::string& line, const Fenwa::DebugValue& value);

/// Values in the form of event lines. A float is written as the double of the same value.
[[nodiscard]] common::Json to_json(const PortValue& value);
[[nodiscard]] common::Json to_json(const Fenwa::DebugValue& value);
[[nodiscard]] common::Json to_json(const Fenwa::BlockConfiguration::Value& value);
[[nodiscard]] common::Json to_json(const Fenwa::BlockConfiguration& settings);

}  // namespace host
