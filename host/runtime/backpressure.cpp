#include "host/runtime/backpressure.hpp"

namespace host {

bool Backpressure::holds(std::size_t unanswered, std::uint64_t now) noexcept {
    if (unanswered < mark) {
        state_ = State::open;
        return false;
    }
    if (state_ == State::open) {
        state_ = State::holding;
        last_ = now;
    } else if (state_ == State::holding && now >= due()) {
        state_ = State::given_up;
    }
    return state_ == State::holding;
}

}  // namespace host
