#pragma once

#include <string_view>

namespace host {

/// Writes to stderr at once, past everything that is buffered, unless nobody takes it: it never
/// waits. Any thread, signal handlers included.
/// @param text a whole line, of less than 4096 bytes.
void write_urgently(std::string_view text) noexcept;

}  // namespace host
