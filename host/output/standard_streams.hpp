#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace host {

// Stdout and stderr of a host whose blocks go on though nobody reads. All at any time: a stream
// that was not buffered, or leads to a file, is written directly.

/// Puts an OutputWriter behind std::cout and std::cerr, one for both where they lead to the same
/// place, so that their order stays. What they hold at the end of the process is still written, as
/// long as somebody reads. Once; before other threads write. @throws std::system_error.
void buffer_standard_streams();

/// As those of OutputWriter, for the writer of stdout.
void describe_dropped_output(std::function<std::string(std::size_t lines)> description);
void on_output_failure(std::function<void(int error)> handler);

/// From here on nobody waits for a reader. Any thread.
void drop_unread_lines() noexcept;

/// Waits until what stdout, or both, hold is written or nobody reads it.
void drain_output();
void drain_standard_streams();

/// Puts a line on stderr without ever waiting; it may be dropped. Any thread.
void say_at_once(std::string_view line);

/// Bytes that both still hold. Any thread, signal handlers included.
[[nodiscard]] std::size_t unwritten_output() noexcept;

}  // namespace host
