#pragma once

#include <systemd/sd-bus.h>

#include <string>

#include "common/text/json.hpp"

namespace camera {

/// An empty string for null, which sd-bus has for a header field that a message does not have, and
/// in a vtable for no arguments and no result.
[[nodiscard]] std::string text_or_empty(const char* text);

/// The body of a received or sent message as a JSON array, one element an argument. A variant
/// becomes its value, a dictionary with string keys an object, another dictionary an array of
/// pairs, a file descriptor the string "<file descriptor>". The message is rewound before and
/// after.
/// @throws std::system_error when the body cannot be read.
[[nodiscard]] common::Json body_json(sd_bus_message& message);

/// The same for a body that `append_json` is to append elsewhere: a variant becomes an object of
/// its type and its value, {"d": 36.5}.
[[nodiscard]] common::Json typed_body_json(sd_bus_message& message);

/// Appends values, one an argument, to a message.
/// @param types the D-Bus signature of the arguments.
/// @param values an array, as `typed_body_json` returns it.
/// @throws CommandError where a value is not of its type, or there are too few or too many.
void append_json(sd_bus_message& message, const std::string& types, const common::Json& values);

/// Arguments, as `body_json` returns them, for a line of text: `3, 0.5, "main"`.
[[nodiscard]] std::string arguments_text(const common::Json& arguments);

}  // namespace camera
