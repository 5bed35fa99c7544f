#pragma once

#include <systemd/sd-bus.h>

#include <optional>

#include "fenwa/datatype.hpp"
#include "host/value/port_value.hpp"

namespace host {

// Values of ports as D-Bus variants: bool is b, int is i, double is d, float the d of the same
// value, and a timer source is (tt), the ticks and the period in milliseconds.

/// Type of a D-Bus value that holds this one; null for std::monostate, which has none.
[[nodiscard]] const char* bus_type(const PortValue& value);

/// Appends a value, which is not std::monostate, as a variant.
/// @returns a negative errno where the message does not take it.
int append_variant(sd_bus_message& message, const PortValue& value);

/// Takes the variant that stands next in a message as a value of this datatype. A d is rounded to
/// the nearest float where a float is asked for, and an i serves as a float or a double, as an
/// integer does among a block's settings; nothing else is converted.
/// @returns nothing, and leaves the variant, where it holds something else.
/// @throws std::system_error when the message cannot be read.
[[nodiscard]] std::optional<PortValue> read_variant(sd_bus_message& message,
                                                    const Fenwa::Datatype& datatype);

/// The same without a datatype: a d is a double.
/// @returns std::monostate, and leaves the variant, where it holds what no port has.
[[nodiscard]] PortValue read_variant(sd_bus_message& message);

}  // namespace host
