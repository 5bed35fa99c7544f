#pragma once

#include <systemd/sd-bus.h>

#include <string>

#include "common/text/json.hpp"

namespace camera {

/// sd-bus has a null pointer for a header field that a message leaves out, and in a vtable for no
/// arguments and no result.
[[nodiscard]] std::string text_or_empty(const char* text);

/// The body of a received or sent message as a JSON array with one element an argument. Variants
/// are shown by what they hold, dictionaries with string keys as objects, other dictionaries as
/// arrays of pairs, file descriptors as the string "<file descriptor>". Nothing is consumed: the
/// message is rewound before and after.
/// @throws std::system_error when the body cannot be read.
[[nodiscard]] common::Json body_json(sd_bus_message& message);

/// Arguments for a line of text: `3, 0.5, "main"`. Takes what `body_json` returns.
[[nodiscard]] std::string arguments_text(const common::Json& arguments);

}  // namespace camera
