#include "camera/timers.hpp"

#include <ctime>
#include <utility>

#include "camera/trampoline.hpp"

namespace camera {

void Timers::once(std::chrono::microseconds delay, std::function<void()> action,
                  std::int64_t priority) {
    std::uint64_t now = 0;
    tool::check(sd_event_now(&event_, CLOCK_MONOTONIC, &now), "sd_event_now");
    pending_.push_back({this, std::move(action), nullptr});
    Pending& pending = pending_.back();
    sd_event_source* source = nullptr;
    // Accuracy 1 us: the default of 250 ms would make every late reply later still.
    const int r =
        sd_event_add_time(&event_, &source, CLOCK_MONOTONIC,
                          now + static_cast<std::uint64_t>(delay.count()), 1, fired, &pending);
    if (r < 0) {
        pending_.pop_back();
        tool::check(r, "sd_event_add_time");
    }
    pending.source.reset(source);
    tool::check(sd_event_source_set_priority(source, priority), "sd_event_source_set_priority");
}

int Timers::fired(sd_event_source* source, std::uint64_t /*when*/, void* userdata) noexcept {
    try {
        const auto* pending = static_cast<const Pending*>(userdata);
        pending->owner->run(pending);
    } catch (...) {
        end_loop_after_exception(source);
    }
    return 0;
}

void Timers::run(const Pending* pending) {
    for (auto it = pending_.begin(); it != pending_.end(); ++it) {
        if (&*it == pending) {
            // Taken out first: the action may add timers, or clear them all.
            std::list<Pending> own;
            own.splice(own.begin(), pending_, it);
            own.front().action();
            return;
        }
    }
}

}  // namespace camera
