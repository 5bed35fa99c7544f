#include "src/frame/owner_match.hpp"

#include <mutex>
#include <utility>

namespace blocks {
namespace {

// No allocation, no constructor or destructor at run time. sd-bus is called under the lock only in
// a callback, never where a run may wait for the connection.
constinit std::mutex mutex;
constinit OwnerMatch* first = nullptr;

}  // namespace

OwnerMatch::~OwnerMatch() {
    const std::lock_guard lock(mutex);
    for (OwnerMatch** link = &first; listed_; link = &(*link)->next_) {
        if (*link != this)
            continue;
        *link = next_;
        break;
    }
}

void OwnerMatch::move_to(State state, sd_bus* bus, Fenwa::Slot* superseded) noexcept {
    const std::lock_guard lock(mutex);
    if (superseded != nullptr)
        kept_.keep(*superseded);
    state_ = state;
    bus_ = bus;
    if (!listed_) {
        next_ = first;
        first = this;
        listed_ = true;
    }
}

void OwnerMatch::fail(int r) {
    move_to(State::none, bus_);
    log_owner_match_failure(r);
}

void OwnerMatch::answered(bool installed) noexcept {
    move_to(installed ? State::installed : State::refused, bus_);
}

void OwnerMatch::discard(Fenwa::Slot& slot) {
    // A later request is sent after the removal, so the removal does not affect it.
    const std::lock_guard lock(mutex);
    kept_.keep(slot);
    for (const OwnerMatch* match = first; match != nullptr; match = match->next_) {
        if (match->may_hold_rule(bus_))
            return;
    }
    for (OwnerMatch* match = first; match != nullptr; match = match->next_) {
        if (match->bus_ == bus_)
            match->kept_.release();
    }
}

void OwnerMatch::released() noexcept {
    SupersededSlots kept;
    {
        const std::lock_guard lock(mutex);
        std::swap(kept, kept_);
        state_ = State::none;
    }
    kept.release();
}

}  // namespace blocks
