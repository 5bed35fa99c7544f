#pragma once

#include <functional>
#include <string>

#include "host/output/repeated_lines.hpp"

namespace host {

/// The log lines of blocks for people: `RepeatedLines` with the current time and block. Any thread.
class RepeatedLog {
  public:
    /// @param tell see `RepeatedLines`.
    explicit RepeatedLog(std::function<void(const RepeatedLines::Line&)> tell);
    RepeatedLog(const RepeatedLog&) = delete;
    RepeatedLog& operator=(const RepeatedLog&) = delete;
    ~RepeatedLog();

    /// The block of `CurrentBlock` has logged a line.
    void log(int level, const std::string& message);

    /// Readable when `settle` is due.
    [[nodiscard]] int descriptor() const noexcept { return timer_; }
    void settle();

    /// Prints all numbers.
    void finish() { lines_.finish(); }

  private:
    void set_timer() const noexcept;

    RepeatedLines lines_;
    int timer_;
};

}  // namespace host
