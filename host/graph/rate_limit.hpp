#pragma once

#include <cstdint>

namespace host {

/// How often a block may run: `burst` runs at once, and `rate` more in each second. 0 in either
/// switches the brake off.
struct RateLimit {
    std::uint64_t burst = 64;
    double rate = 200.0;  ///< runs a second, finite, 0 or more

    friend bool operator==(const RateLimit&, const RateLimit&) = default;
    [[nodiscard]] bool enabled() const noexcept { return burst > 0 && rate > 0.0; }
};

/// What one block may still run: a token bucket that is full at first. Times are microseconds of
/// any clock that never goes back.
class TokenBucket {
  public:
    /// @param pace one that enabled.
    /// @param now the time of the first run or before.
    TokenBucket(const RateLimit& rate_limit, std::uint64_t now) noexcept;

    /// Spends one run if there is one to spend.
    /// @returns whether there was.
    bool take(std::uint64_t now) noexcept;

    /// Refills nothing for the time from the last `take` until `now`.
    void skip_to(std::uint64_t now) noexcept;

    /// From when on `take` succeeds again, after it has failed; the largest number where that is
    /// beyond all clocks.
    [[nodiscard]] std::uint64_t due() const noexcept;

  private:
    double burst_;
    double per_microsecond_;
    double left_;            ///< runs
    std::uint64_t counted_;  ///< when `left_` was worked out
};

/// The processor time that all blocks of the host which try again, and have spent their own
/// budgets, may take together: a token bucket. Times are microseconds, processor time nanoseconds.
class RetryBudget {
  public:
    /// The share of one core.
    static constexpr double share = 0.02;
    /// The most that is saved up, in nanoseconds.
    static constexpr double burst = 5e6;
    /// What must be there before a run is made after the budget was spent: one wake-up then serves
    /// several runs.
    static constexpr double portion = 0.25e6;

    /// Whether a run may be made now.
    [[nodiscard]] bool allows(std::uint64_t now) noexcept;

    /// Spends this much, which may be more than there is.
    void charge(double nanoseconds) noexcept;

    /// When `allows` says true again, after it has said false.
    [[nodiscard]] std::uint64_t due() const noexcept;

  private:
    double left_ = burst;
    bool spent_ = false;
    std::uint64_t counted_ = 0;  ///< when `left_` was worked out
};

}  // namespace host
