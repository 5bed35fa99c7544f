#pragma once

#include <systemd/sd-event.h>

#include <chrono>
#include <compare>
#include <cstdint>
#include <functional>
#include <list>
#include <map>

#include "common/bus/bus.hpp"

namespace camera {

/// One-shot timers on the loop. They die with this object: an action never runs after that.
/// Actions of one priority run in the order in which they are due, and those that are due at the
/// same time in the order in which they were asked for, however late the loop comes to them.
class Timers {
  public:
    /// `event` must outlive this object.
    explicit Timers(sd_event& event) : event_(event) {}
    Timers(const Timers&) = delete;
    Timers& operator=(const Timers&) = delete;

    /// Calls `action` once from the loop, `delay` from now; 0 means in the loop's next round.
    /// `priority` is sd-event's: what is smaller goes first.
    /// @throws std::system_error when the loop takes no further source.
    void once(std::chrono::microseconds delay, std::function<void()> action,
              std::int64_t priority = SD_EVENT_PRIORITY_NORMAL);

    /// Forgets all that have not run yet. May be called by an action.
    void clear() noexcept {
        alarms_.clear();
        actions_.clear();
    }

  private:
    /// When an action is to run; the order of these is the order of the actions.
    struct Due {
        std::int64_t priority;
        std::uint64_t when;
        std::uint64_t number;

        friend auto operator<=>(const Due&, const Due&) = default;
    };

    /// Wakes the loop for one action; for which one is known when it goes off, because sd-event
    /// serves what is due together in no order of its own.
    struct Alarm {
        void go_off() { owner->run_next(this); }

        Timers* owner;
        std::int64_t priority;
        common::EventSourcePtr source;
    };

    void run_next(const Alarm* alarm);

    sd_event& event_;
    std::list<Alarm> alarms_;
    std::map<Due, std::function<void()>> actions_;
    std::uint64_t last_number_ = 0;
};

}  // namespace camera
