#pragma once

#include <cstdint>

namespace host {

/// How often a block may run: `burst` runs at once, and `rate` more in each second. 0 in either
/// switches the brake off.
struct Pace {
    std::uint64_t burst = 64;
    double rate = 200.0;  ///< runs a second, finite, 0 or more

    friend bool operator==(const Pace&, const Pace&) = default;
    [[nodiscard]] bool brakes() const noexcept { return burst > 0 && rate > 0.0; }
};

/// What a run costs beyond itself in which a block has called over the bus, in runs: one call keeps
/// the host, the daemon and the service busy for far longer than a run does, and at 200 tries a
/// second two blocks that try again for ever would take more than 3 % of a core.
inline constexpr double call_cost = 2.0;

/// What one block may still run: a token bucket that is full at first. Times are microseconds of
/// any clock that never goes back.
class RunBudget {
  public:
    /// @param pace one that brakes.
    /// @param now the time of the first run or before.
    RunBudget(const Pace& pace, std::uint64_t now) noexcept;

    /// Spends one run if there is one to spend.
    /// @returns whether there was.
    bool take(std::uint64_t now) noexcept;

    /// Makes the run that was taken last cost so much more. Only a block that has had to wait since
    /// its budget was full pays, so that a burst is as long for all.
    void charge(double runs) noexcept;

    /// From when on `take` succeeds again, after it has failed; the largest number where that is
    /// beyond all clocks.
    [[nodiscard]] std::uint64_t due() const noexcept;

  private:
    double burst_;
    double per_microsecond_;
    double left_;              ///< runs; below 0 where one has cost more than there was
    bool has_waited_ = false;  ///< since the budget was full
    std::uint64_t counted_;    ///< when `left_` was worked out
};

}  // namespace host
