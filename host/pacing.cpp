#include "host/pacing.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace host {
namespace {

/// Fractions add up with rounding errors: this much is missing from a whole run at most.
constexpr double rounding = 1e-9;

}  // namespace

RunBudget::RunBudget(const Pace& pace, std::uint64_t now) noexcept
    : burst_(static_cast<double>(pace.burst)),
      per_microsecond_(pace.rate / 1e6),
      left_(burst_),
      counted_(now) {}

bool RunBudget::take(std::uint64_t now) noexcept {
    if (now > counted_) {
        left_ = std::min(burst_, left_ + static_cast<double>(now - counted_) * per_microsecond_);
        counted_ = now;
    }
    if (left_ < 1.0 - rounding) {
        has_waited_ = true;
        return false;
    }
    has_waited_ = has_waited_ && left_ < burst_;
    left_ = std::max(0.0, left_ - 1.0);
    return true;
}

void RunBudget::charge(double runs) noexcept {
    if (has_waited_)
        left_ -= runs;
}

std::uint64_t RunBudget::due() const noexcept {
    constexpr std::uint64_t never = std::numeric_limits<std::uint64_t>::max();
    const double wait = std::ceil(std::max(0.0, 1.0 - left_) / per_microsecond_);
    // Clocks that count nanoseconds in 63 bits go on for 292 years.
    return wait < 9e15 ? counted_ + static_cast<std::uint64_t>(wait) : never;
}

}  // namespace host
