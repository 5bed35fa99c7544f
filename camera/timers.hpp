#pragma once

#include <systemd/sd-event.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>

#include "common/bus.hpp"

namespace camera {

/// One-shot timers on the loop. They die with this object: an action never runs after that.
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
    void clear() noexcept { pending_.clear(); }

  private:
    struct Pending {
        Timers* owner;
        std::function<void()> action;
        tool::EventSourcePtr source;
    };

    static int fired(sd_event_source* source, std::uint64_t when, void* userdata) noexcept;
    void run(const Pending* pending);

    sd_event& event_;
    std::list<Pending> pending_;
};

}  // namespace camera
