#pragma once

#include <systemd/sd-bus.h>

#include <optional>

#include "fenwa/datatype.hpp"
#include "host/value/port_value.hpp"

namespace host {

// Values of ports as D-Bus variants: bool is b, int is i, double is d, float the d of the same
// value, and a timer source is (tt), the ticks and the period in milliseconds.

/// The D-Bus type of a value; null for std::monostate.
[[nodiscard]] const char* bus_type(const PortValue& value);

/// Appends a value as a variant.
/// @returns a negative errno if the message refuses it, -EINVAL for std::monostate.
int append_variant(sd_bus_message& message, const PortValue& value);

/// Reads the next variant of a message as a value of this datatype. A d is rounded to the nearest
/// float for a float, and an i serves as a float or a double, as an integer does among a block's
/// settings; no other type is converted.
/// @returns nothing, and leaves the variant, if its type does not fit.
/// @throws std::system_error if the message cannot be read.
[[nodiscard]] std::optional<PortValue> value_from_variant(sd_bus_message& message,
                                                          const Fenwa::Datatype& datatype);

/// Reads the next variant of a message by its own type: a d is a double.
/// @returns std::monostate, and leaves the variant, if no port has values of its type.
/// @throws std::system_error if the message cannot be read.
[[nodiscard]] PortValue value_from_variant(sd_bus_message& message);

}  // namespace host
