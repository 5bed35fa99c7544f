#pragma once

#include <systemd/sd-event.h>

#include <functional>
#include <map>
#include <set>

#include "camera/bus/timers.hpp"
#include "common/bus/bus.hpp"

namespace camera {

/// Waits for the children of this process: programs that it has started, and processes that these
/// leave behind, which this process adopts. One a process; everything runs on the loop.
class Reaper {
  public:
    /// SIGCHLD must be blocked.
    /// @param reaped called when one or more children have ended, after the callbacks of `watch`.
    Reaper(sd_event& event, std::function<void()> reaped);
    Reaper(const Reaper&) = delete;
    Reaper& operator=(const Reaper&) = delete;

    /// Watches a child. @param ended called once, with the exit code (128 + N after signal N).
    void watch(pid_t child, std::function<void(int status)> ended);
    /// Stops watching a child; the caller waits for it.
    void forget(pid_t child) noexcept;
    /// Neither waits for this child nor ends it, because its starter does. @param child 0 for none.
    void leave(pid_t child) noexcept { left_ = child; }

    /// Whether there is any child, started or adopted, but the one that was left.
    [[nodiscard]] bool any() const;

    /// Sends SIGTERM to all children, and to the processes that they leave behind; 10 s later
    /// SIGKILL in the same way.
    void end_children();

  private:
    enum class State {
        watching,
        terminating,  ///< children get SIGTERM
        killing,      ///< children get SIGKILL
    };

    void on_child_ended();
    /// Changes the state, and sends its signal.
    void enter(State state);
    /// Sends the state's signal to each child that has not had it.
    void signal_children();
    /// The children but the one that was left.
    [[nodiscard]] std::set<pid_t> others() const;

    std::function<void()> reaped_;
    std::map<pid_t, std::function<void(int)>> watched_;
    pid_t left_ = 0;
    State state_ = State::watching;
    std::set<pid_t> signalled_;  // since the state has changed
    Timers timers_;
    common::EventSourcePtr source_;
};

}  // namespace camera
