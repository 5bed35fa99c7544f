#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace host {

/// Shortens the log for people: equal lines of one block that follow each other faster than ten a
/// second appear once, and then with their number. The first one appears at once, and the numbers
/// are exact. Any thread.
class RepeatedLines {
  public:
    using Clock = std::chrono::steady_clock;

    struct Line {
        std::string block;  ///< empty where none is known
        int level;
        std::string message;

        friend auto operator<=>(const Line&, const Line&) = default;
    };

    /// Lines that are at most so far apart are counted together.
    static constexpr std::chrono::milliseconds gap{100};
    /// How often the number appears while lines continue.
    static constexpr std::chrono::seconds period{1};

    /// @param tell called with each line to print, or with "repeated 260 times in 1.0 s: " in
    ///        front of its message; on the calling thread, one call at a time.
    explicit RepeatedLines(std::function<void(const Line&)> tell) : tell_(std::move(tell)) {}

    /// @returns whether the line is the first that was counted only: call `settle` in a `gap`, and
    ///          then again while `is_counting`.
    bool log(Line line, Clock::time_point now);

    /// Prints the number of lines that have ended or continued for long enough.
    void settle(Clock::time_point now);
    /// Prints all numbers, and starts anew.
    void finish();

    /// Whether a number is still to be printed.
    [[nodiscard]] bool is_counting() const;

  private:
    struct Run {
        Clock::time_point told;    ///< the line, or the last number
        Clock::time_point last;    ///< one came
        std::uint64_t untold = 0;  ///< since then
    };

    void tell_number(const Line& line, Run& run);
    void settle_locked(Clock::time_point now);

    std::function<void(const Line&)> tell_;
    mutable std::mutex mutex_;
    std::map<Line, Run> runs_;
    std::uint64_t counting_ = 0;          ///< runs that have something untold
    Clock::time_point looked_through_{};  ///< all runs
};

}  // namespace host
