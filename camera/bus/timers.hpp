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

/// A new event loop, for the timers and connections of a program.
/// @throws std::system_error
[[nodiscard]] common::EventPtr new_event();

/// One-shot timers on the loop; none runs after this object is destroyed. Actions of one priority
/// run in the order in which they are due, and those due at the same time in the order in which
/// they were added, however late the loop is.
class Timers {
  public:
    /// `event` must outlive this object.
    explicit Timers(sd_event& event) : event_(event) {}
    Timers(const Timers&) = delete;
    Timers& operator=(const Timers&) = delete;

    /// Runs `action` once from the loop.
    /// @param delay from now; 0 means the loop's next round. Not after 68 years of uptime.
    /// @param priority as in sd-event: a smaller one runs first.
    /// @throws std::system_error when the loop takes no further source.
    void once(std::chrono::microseconds delay, std::function<void()> action,
              std::int64_t priority = SD_EVENT_PRIORITY_NORMAL);

    /// Drops the actions that have not run. An action may call it.
    void clear() noexcept {
        alarms_.clear();
        actions_.clear();
    }

  private:
    /// The key of an action; actions run in the order of their keys.
    struct Due {
        std::int64_t priority;
        std::uint64_t when;
        std::uint64_t number;

        friend auto operator<=>(const Due&, const Due&) = default;
    };

    /// Wakes the loop for one action. `run_next` decides for which one, because sd-event gives no
    /// order to timers that are due together.
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
