#pragma once

#include <systemd/sd-bus.h>

#include <array>
#include <charconv>
#include <string>

namespace Fenwa::testkit {

/// The shortest text that no other number of the type has.
template <class Number>
[[nodiscard]] std::string number_text(Number number) {
    std::array<char, 32> text{};
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), number).ptr};
}

[[nodiscard]] inline std::string quoted(const std::string& text) {
    return '"' + text + '"';
}

/// The arguments of a sealed message, each with its type, as in `Call`. Rewinds the message.
/// @throws std::system_error when they cannot be read.
[[nodiscard]] std::string arguments_text(sd_bus_message* message);

}  // namespace Fenwa::testkit
