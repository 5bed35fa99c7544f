#pragma once

#include <functional>
#include <string>

#include "host/output/repeated_lines.hpp"

namespace host {

/// What blocks log, as it happens, for people: `RepeatedLines` with the time and the block of the
/// moment. Any thread.
class RepeatedLog {
  public:
    /// @param tell see `RepeatedLines`.
    explicit RepeatedLog(std::function<void(const RepeatedLines::Line&)> tell);
    RepeatedLog(const RepeatedLog&) = delete;
    RepeatedLog& operator=(const RepeatedLog&) = delete;
    ~RepeatedLog();

    /// The block of `CurrentBlock` has logged a line.
    void log(int level, const std::string& message);

    /// Can be read from when `settle` is to be called.
    [[nodiscard]] int descriptor() const noexcept { return timer_; }
    void settle();

    /// Tells all that is to be told still.
    void finish() { lines_.finish(); }

  private:
    void set_timer() const noexcept;

    RepeatedLines lines_;
    int timer_;
};

}  // namespace host
