#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "common/events/message.hpp"

namespace host {

// Stdout and stderr of a host whose blocks continue without a reader. All at any time: a stream
// that was not buffered, or leads to a file, is written directly.

/// Gives std::cout and std::cerr an OutputWriter, one for both if they lead to the same place, so
/// that their order stays. The end of the process waits until a reader has taken everything. Once;
/// before other threads write. @throws std::system_error.
void buffer_standard_streams();

/// As those of OutputWriter, for the writer of stdout.
void describe_dropped_output(std::function<std::string(std::size_t lines)> description);
void on_output_failure(std::function<void(int error)> handler);

/// From here on no write waits for a reader. Any thread.
void drop_unread_lines() noexcept;

/// Waits until stdout, or both, are written, or their readers do not read.
void drain_output();
void drain_standard_streams();

/// As `common::print_message`, but never waits: the message may be dropped. Any thread.
void say_at_once(common::Severity severity, std::string_view sentence, std::string_view block = {});

/// Bytes that both still hold. Any thread, signal handlers included.
[[nodiscard]] std::size_t unwritten_output() noexcept;

}  // namespace host
