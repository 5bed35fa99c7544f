#pragma once

#include <systemd/sd-event.h>

#include <functional>
#include <map>
#include <set>

#include "camera/bus/timers.hpp"
#include "common/bus/bus.hpp"

namespace camera {

/// Waits for the children of this process: programs that it has started, and what these leave
/// running when they end, which is adopted. One for a process; all happens from the loop.
class Reaper {
  public:
    /// `reaped` is called when one or more children have ended, after those who watch them were
    /// told. SIGCHLD must be blocked.
    Reaper(sd_event& event, std::function<void()> reaped);
    Reaper(const Reaper&) = delete;
    Reaper& operator=(const Reaper&) = delete;

    /// Calls `ended` once, when this child has ended, with its exit code (128 + N after signal N).
    void watch(pid_t child, std::function<void(int status)> ended);
    /// Does not call for it any more; whoever says so waits for it.
    void forget(pid_t child) noexcept;
    /// Leaves this child, 0 for none, to whoever has started it: neither waits for nor ends it.
    void leave(pid_t child) noexcept { left_ = child; }

    /// Whether any child, started or adopted, is there besides the one that was left.
    [[nodiscard]] bool any() const;

    /// SIGTERM to all children now, and to what these leave as soon as it is adopted; the same with
    /// SIGKILL where any is still there 10 s later.
    void ask_to_end();

  private:
    void on_child_ended();
    /// Sends the signal to all that are there and have not had it.
    void signal_all();
    /// The children but the one that was left.
    [[nodiscard]] std::set<pid_t> others() const;

    std::function<void()> reaped_;
    std::map<pid_t, std::function<void(int)>> watched_;
    pid_t left_ = 0;
    int signal_ = 0;  // that ends them; 0 as long as they are to live
    std::set<pid_t> signalled_;
    Timers timers_;
    common::EventSourcePtr source_;
};

}  // namespace camera
