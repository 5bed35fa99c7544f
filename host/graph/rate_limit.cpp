#include "host/graph/rate_limit.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace host {
namespace {

/// Fractions add up with rounding errors: this much is missing from a whole run at most.
constexpr double rounding = 1e-9;

}  // namespace

TokenBucket::TokenBucket(const RateLimit& rate_limit, std::uint64_t now) noexcept
    : burst_(static_cast<double>(rate_limit.burst)),
      per_microsecond_(rate_limit.rate / 1e6),
      left_(burst_),
      counted_(now) {}

bool TokenBucket::take(std::uint64_t now) noexcept {
    if (now > counted_) {
        left_ = std::min(burst_, left_ + static_cast<double>(now - counted_) * per_microsecond_);
        counted_ = now;
    }
    if (left_ < 1.0 - rounding)
        return false;
    left_ = std::max(0.0, left_ - 1.0);
    return true;
}

void TokenBucket::skip_to(std::uint64_t now) noexcept {
    counted_ = std::max(counted_, now);
}

std::uint64_t TokenBucket::due() const noexcept {
    constexpr std::uint64_t never = std::numeric_limits<std::uint64_t>::max();
    const double wait = std::ceil(std::max(0.0, 1.0 - left_) / per_microsecond_);
    // Clocks that count nanoseconds in 63 bits go on for 292 years.
    return wait < 9e15 ? counted_ + static_cast<std::uint64_t>(wait) : never;
}

bool RetryBudget::allows(std::uint64_t now) noexcept {
    if (now > counted_) {
        left_ = std::min(burst, left_ + static_cast<double>(now - counted_) * share * 1e3);
        counted_ = now;
    }
    spent_ = left_ <= 0.0 || (spent_ && left_ < portion);
    return !spent_;
}

void RetryBudget::charge(double nanoseconds) noexcept {
    left_ -= nanoseconds;
}

std::uint64_t RetryBudget::due() const noexcept {
    return counted_ + static_cast<std::uint64_t>(std::ceil((portion - left_) / (share * 1e3)));
}

}  // namespace host
