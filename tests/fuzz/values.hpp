#pragma once

#include <fuzzer/FuzzedDataProvider.h>
#include <systemd/sd-bus.h>

#include <string>

namespace fuzz {

using Input = FuzzedDataProvider;

/// A text: one that the system knows, or any that D-Bus takes.
[[nodiscard]] std::string text(Input& input);

/// The signature of a message: one that services send, or any.
[[nodiscard]] std::string signature(Input& input);

/// Appends values of these types. @throws std::system_error if sd-bus refuses one.
void append_values(sd_bus_message* message, const std::string& types, Input& input);

/// Appends any values of any types.
inline void append_values(sd_bus_message* message, Input& input) {
    append_values(message, signature(input), input);
}

}  // namespace fuzz
