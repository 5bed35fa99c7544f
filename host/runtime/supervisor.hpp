#pragma once

#include <sys/signalfd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

#include "common/process/descriptor.hpp"
#include "host/runtime/event_fd.hpp"

namespace host {

/// A thread that works while the loop is blocked in a block: it serves the signals, asks the loop
/// to stop, ends the process at the second request, and names the block that the loop waits for. It
/// lives until the process ends, so that no signal is missed.
class Supervisor {
  public:
    /// The effect of SIGHUP: its default, or a reload. If the terminal of the process was closed,
    /// it asks to stop instead of reloading, unless nohup(1) forbids that.
    enum class Hangup { ends, reloads };

    /// Starts it, once in a process. From here on SIGINT and SIGTERM, and SIGHUP if it reloads, are
    /// blocked on the calling thread and on threads that this one starts.
    /// @throws std::system_error
    static Supervisor& start(Hangup hangup);
    Supervisor(const Supervisor&) = delete;
    Supervisor& operator=(const Supervisor&) = delete;

    /// From here on the first SIGINT or SIGTERM asks the loop to stop, and another one kills the
    /// process; before, the first one kills it.
    void stop_in_order() noexcept;

    /// After this time, which replaces an earlier one, the loop counts as asked to stop by a first
    /// signal. It is not woken, because it has timers of its own.
    void stop_after(std::chrono::microseconds time) noexcept;

    /// From here on calls `on_gone`, on the thread of the supervisor, when the reader of a pipe or
    /// a socket has gone. Once.
    void watch_reader(int fd, std::function<void()> on_gone);

    /// Asks the loop to stop; does not count as a signal. Any thread.
    void request_stop() noexcept;
    /// Whether the loop has been asked to stop. Any thread.
    [[nodiscard]] bool stop_requested() const noexcept {
        const State state = state_;
        return state == State::stop_pending || state == State::stopping;
    }

    /// Set from the request on.
    [[nodiscard]] const EventFd& stop_event() const noexcept { return stop_event_; }
    /// Set when a SIGHUP has asked for a reload; the loop clears it.
    [[nodiscard]] const EventFd& reload_event() const noexcept { return reload_event_; }

  private:
    using Clock = std::chrono::steady_clock;

    enum class State {
        starting,      ///< a signal ends the process
        stop_pending,  ///< like `starting`, and the loop is not to be run
        running,       ///< a signal asks the loop to stop
        stopping       ///< the loop was asked to stop; a further signal ends the process
    };

    explicit Supervisor(Hangup hangup);
    [[noreturn]] void serve() noexcept;
    /// Changes the state if it is `from`. @returns whether it was. Any thread.
    bool change(State from, State to) noexcept { return state_.compare_exchange_strong(from, to); }
    void enter_stop() noexcept;
    void serve_signal() noexcept;
    void take_request(int signal) noexcept;
    void ask_to_stop(int signal) noexcept;
    void note_first_request() noexcept;
    [[nodiscard]] bool is_hangup(const signalfd_siginfo& info) const noexcept;
    [[noreturn]] void end_process(int signal) noexcept;
    /// Names the block that the loop has waited for too long. @returns when to look again.
    [[nodiscard]] Clock::time_point look_at_loop(Clock::time_point now);

    common::Descriptor signals_;
    EventFd stop_event_;
    EventFd reload_event_;
    EventFd wake_event_;
    const bool had_terminal_;
    const bool outlives_terminal_;
    std::function<void()> on_reader_gone_;
    std::atomic<int> reader_{-1};
    std::atomic<State> state_{State::starting};
    std::atomic<Clock::time_point> stop_at_{Clock::time_point::max()};
    static_assert(decltype(stop_at_)::is_always_lock_free);
    // Used by the thread only.
    std::optional<Clock::time_point> first_request_;  ///< by a signal, or because time was over
    std::optional<Clock::time_point> stopping_since_;
    std::uint32_t seen_ = 0;          ///< number of the activity at the last look
    Clock::time_point seen_since_{};  ///< when that one began, as far as known
    std::uint32_t named_ = 0;         ///< number of the activity that was named last
    bool named_in_stop_ = false;      ///< ... after the request to stop
};

}  // namespace host
