#include "host/runtime/throttle.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace host {
namespace {

/// The most that rounding errors take from a whole run.
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

bool Backpressure::should_wait(std::size_t unanswered, std::uint64_t now) noexcept {
    if (unanswered < high_watermark) {
        state_ = State::open;
        return false;
    }
    if (state_ == State::open) {
        state_ = State::waiting;
        last_ = now;
    } else if (state_ == State::waiting && now >= due()) {
        state_ = State::given_up;
    }
    return state_ == State::waiting;
}

void RefusedMatches::installed(Fenwa::Block& block) {
    if (trying_ == &block)
        due_ = 0;
}

bool RefusedMatches::remove(Fenwa::Block& block) {
    blocks_.erase(&block);
    const auto found = std::find(waiting_.begin(), waiting_.end(), &block);
    if (found == waiting_.end())
        return false;
    waiting_.erase(found);
    return true;
}

bool RefusedMatches::forget(Fenwa::Block& block) {
    if (trying_ == &block)
        trying_ = nullptr;
    return remove(block);
}

void RefusedMatches::clear() {
    blocks_.clear();
    waiting_.clear();
    trying_ = nullptr;
}

Fenwa::Block* RefusedMatches::take(std::uint64_t now) {
    if (waiting_.empty() || now < due_)
        return nullptr;
    trying_ = waiting_.front();
    waiting_.pop_front();
    blocks_.erase(trying_);
    due_ = now + interval;
    return trying_;
}

std::vector<Fenwa::Block*> RefusedMatches::take_all() {
    std::vector<Fenwa::Block*> all(waiting_.begin(), waiting_.end());
    for (Fenwa::Block* block : all)
        blocks_.erase(block);
    waiting_.clear();
    return all;
}

}  // namespace host
