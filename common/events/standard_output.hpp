#pragma once

#include <atomic>
#include <functional>
#include <iostream>
#include <ostream>
#include <string_view>

#include "common/process/exit_code.hpp"

namespace common {

/// Opens /dev/null for every standard stream that the starter has closed. Otherwise the next file
/// or socket would take its number, and receive what is meant for the stream.
void open_closed_streams();

/// Whether a stream is a pipe or a socket, whose reader may go away.
[[nodiscard]] bool has_reader(int fd) noexcept;

/// Stdout, whose reader may go away and whose disk may be full. SIGPIPE must be ignored.
class StandardOutput {
  public:
    /// @param on_failure called once, at the first write that fails, on the thread of that write:
    ///        it must neither block nor throw.
    /// @param stream outlives this object.
    explicit StandardOutput(std::function<void()> on_failure, std::ostream& stream = std::cout)
        : on_failure_(std::move(on_failure)), stream_(stream) {}
    StandardOutput(const StandardOutput&) = delete;
    StandardOutput& operator=(const StandardOutput&) = delete;

    /// Writes the text at once. Writes nothing more after a failure, so that a reader finds no gap.
    /// Any thread, one at a time.
    void write(std::string_view text);

    /// Takes note of a write that has failed elsewhere. Any thread.
    /// @param error its errno.
    void fail(int error) noexcept;

    /// The errno of the write that failed, EPIPE if the reader has gone; 0 for none.
    [[nodiscard]] int error() const noexcept { return error_; }

  private:
    std::function<void()> on_failure_;
    std::ostream& stream_;
    std::atomic<int> error_{0};
};

/// The exit code when stdout may have failed, with a message if it has. A reader that goes away, as
/// `head` does, has what it wanted: that is a stop by the user. Any other failure has lost lines
/// that somebody waits for.
[[nodiscard]] ExitCode code_after(const StandardOutput& out, ExitCode code);

}  // namespace common
