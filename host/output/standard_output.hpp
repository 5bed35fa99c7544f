#pragma once

#include <atomic>
#include <functional>
#include <string>

#include "common/process/exit_code.hpp"

namespace host {

/// Opens /dev/null for every standard stream that the starter has closed. Otherwise the next file
/// or socket would take its number, and receive what is meant for the stream. First of all.
void open_closed_streams();

/// Whether a stream is a pipe or a socket, whose reader may go away.
[[nodiscard]] bool has_reader(int fd) noexcept;

/// Stdout, whose reader may go away and whose disk may be full.
class StandardOutput {
  public:
    /// From here on a write to a reader that has gone fails, and does not end the process.
    /// @param on_failure called once, at the first write that fails, on whichever thread: it must
    ///        neither block nor throw.
    explicit StandardOutput(std::function<void()> on_failure);
    StandardOutput(const StandardOutput&) = delete;
    StandardOutput& operator=(const StandardOutput&) = delete;

    /// Writes the text at once. Nothing is written any more after a failure, so that there is no
    /// gap in what a reader has. Any thread, one at a time.
    void write(const std::string& text);

    /// Takes note of a write that has failed elsewhere. Any thread.
    /// @param error its errno.
    void fail(int error) noexcept;

    /// The errno of the write that failed, EPIPE when the reader has gone; 0 for none.
    [[nodiscard]] int error() const noexcept { return error_; }

  private:
    std::function<void()> on_failure_;
    std::atomic<int> error_{0};
};

/// The exit code when stdout may have failed, which is said on stderr then. A reader that goes
/// away, as `head` does, has what it wanted: that is a stop by the user. Any other failure has lost
/// lines that somebody waits for.
[[nodiscard]] common::ExitCode code_after(const StandardOutput& out, common::ExitCode code);

}  // namespace host
