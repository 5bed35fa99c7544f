#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace host {

/// Tells log lines to people: the equal lines of one block that follow each other faster than ten a
/// second are told once, and then with their number. The first one is told at once, and the
/// numbers are exact. Any thread.
class RepeatedLines {
  public:
    using Clock = std::chrono::steady_clock;

    struct Line {
        std::string block;  ///< empty where none is known
        int level;
        std::string message;

        friend auto operator<=>(const Line&, const Line&) = default;
    };

    /// Lines that are no further apart than this are told together.
    static constexpr std::chrono::milliseconds gap{100};
    /// How often the number of lines that go on is told.
    static constexpr std::chrono::seconds period{1};

    /// @param tell called with each line to be told, or with "repeated 260 times in 1.0 s: " in
    ///        front of its message; on the thread of whoever calls, one call at a time.
    explicit RepeatedLines(std::function<void(const Line&)> tell) : tell_(std::move(tell)) {}

    /// @returns whether the line is the first that was not told, so that `settle` is to be called
    ///          in a `gap`, and then again while `is_counting`.
    bool log(Line line, Clock::time_point now);

    /// Tells the number of those that have ended or gone on for long enough.
    void settle(Clock::time_point now);
    /// Tells the number of all. Those that come later are told as if none had come before.
    void finish();

    /// Whether a number is to be told still.
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
