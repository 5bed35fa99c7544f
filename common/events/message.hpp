#pragma once

#include <string>
#include <string_view>

namespace common {

class Diagnostics;

/// How urgent a line is, as in syslog(3).
enum class Severity : int { error = 3, warning = 4, info = 6 };

/// Names the process in its messages and in the journal. Before threads are started.
/// @param name "fenwa".
void set_program_name(const std::string& name);

/// "fenwa: ", the beginning of every message on stderr. Any thread, signal handlers included.
[[nodiscard]] std::string_view message_prefix() noexcept;

/// "fenwa: SENTENCE" with a line end, safe for a terminal. Any thread.
[[nodiscard]] std::string message_line(std::string_view sentence);

/// Prints the new mistakes of a file: each an entry with its priority in the journal if stderr
/// leads to it, and otherwise on stderr as `Diagnostics::print` does.
void print_diagnostics(Diagnostics& diagnostics, bool color);

/// Tells the user something: an entry in the journal if stderr leads to it, and otherwise one line
/// on stderr, in one piece. Any thread.
/// @param block the block that the sentence is about, empty for none.
void print_message(Severity severity, std::string_view sentence, std::string_view block = {});

}  // namespace common
