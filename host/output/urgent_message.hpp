#pragma once

#include <string_view>

#include "common/events/message.hpp"

namespace host {

/// Prints a message at once, past everything that stderr buffers. Never waits: the message is lost
/// if no reader takes it. Any thread, signal handlers included.
/// @param sentence at most 1000 printable characters.
/// @param block as for `common::print_message`.
void print_urgently(common::Severity severity, std::string_view sentence,
                    std::string_view block = {}) noexcept;

/// Writes whole lines to stderr in the same way.
/// @param text less than 4096 bytes.
void write_urgently(std::string_view text) noexcept;

}  // namespace host
