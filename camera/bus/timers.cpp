#include "camera/bus/timers.hpp"

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <limits>
#include <utility>

#include "common/bus/callback.hpp"

namespace camera {
namespace {

/// A time in microseconds before the end of a time_t of 32 bits. sd-event refuses its last second,
/// and fails in the loop, not where a timer is made.
constexpr std::uint64_t end_of_time =
    std::uint64_t{std::numeric_limits<std::int32_t>::max() - 1} * 1'000'000;

}  // namespace

common::EventPtr new_event() {
    common::EventPtr event;
    common::check(sd_event_new(event.out()), "cannot make an event loop");
    return event;
}

void Timers::once(std::chrono::microseconds delay, std::function<void()> action,
                  std::int64_t priority) {
    std::uint64_t now = 0;
    common::check(sd_event_now(&event_, CLOCK_MONOTONIC, &now), "sd_event_now");
    const std::uint64_t when =
        std::min(now + static_cast<std::uint64_t>(delay.count()), end_of_time);
    const auto action_at = actions_.emplace(Due{priority, when, ++last_number_}, std::move(action));
    alarms_.push_back({this, priority, nullptr});
    Alarm& alarm = alarms_.back();
    // Accuracy 1 us: the default of 250 ms would add to every delay.
    const int r = sd_event_add_time(&event_, alarm.source.out(), CLOCK_MONOTONIC, when, 1,
                                    common::callback<&Alarm::go_off>, &alarm);
    if (r < 0) {
        alarms_.pop_back();
        actions_.erase(action_at.first);
        common::check(r, "cannot make a timer");
    }
    common::check(sd_event_source_set_priority(alarm.source.get(), priority),
                  "sd_event_source_set_priority");
}

void Timers::run_next(const Alarm* alarm) {
    // As many actions are due as alarms, so the first of this priority is due. Both are removed
    // first, because the action may add timers or clear them all.
    const auto next = actions_.lower_bound(Due{alarm->priority, 0, 0});
    std::list<Alarm> spent;
    for (auto it = alarms_.begin(); it != alarms_.end(); ++it) {
        if (&*it == alarm) {
            spent.splice(spent.begin(), alarms_, it);
            break;
        }
    }
    const auto action = actions_.extract(next);
    action.mapped()();
}

}  // namespace camera
