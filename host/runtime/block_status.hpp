#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace host {

/// A log line of a block.
struct LoggedLine {
    int level;
    std::string message;
    std::uint64_t at;  ///< microseconds of CLOCK_MONOTONIC
};

/// The work of one block since its start, for people who ask why a graph does nothing. All times
/// are microseconds of CLOCK_MONOTONIC. Thread of the loop.
class BlockStatus {
  public:
    void ran(std::uint64_t now) noexcept;
    void published() noexcept { ++published_; }
    void logged(LoggedLine line) { last_line_ = std::move(line); }

    [[nodiscard]] std::uint64_t runs() const noexcept { return runs_; }
    /// Runs in a second, over the last one to two seconds.
    [[nodiscard]] double runs_per_second(std::uint64_t now) const noexcept;
    /// When the last run began; 0 before the first one.
    [[nodiscard]] std::uint64_t last_run() const noexcept { return last_run_; }
    /// Outputs that carried a new value.
    [[nodiscard]] std::uint64_t values_published() const noexcept { return published_; }
    [[nodiscard]] const std::optional<LoggedLine>& last_line() const noexcept { return last_line_; }

  private:
    std::uint64_t runs_ = 0;
    std::uint64_t last_run_ = 0;
    std::uint64_t published_ = 0;
    // Runs are counted in windows of a second or more: the one that began last, and that before it.
    std::uint64_t window_ = 0;
    std::uint64_t window_before_ = 0;
    std::uint64_t runs_in_window_ = 0;
    std::uint64_t runs_in_window_before_ = 0;
    std::optional<LoggedLine> last_line_;
};

}  // namespace host
