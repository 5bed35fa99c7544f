#pragma once

#include <sys/signalfd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

#include "common/process/descriptor.hpp"

namespace host {

/// A thread that has time when the loop has none, because a block does not come back: it serves
/// the signals, lets the loop know that it is to stop, ends the process at the second request, and
/// names what the loop waits for. It lives until the process ends, so that no moment is without it.
class Supervisor {
  public:
    /// What SIGHUP is for: what it does anyway, or a reload, unless it says that the terminal of
    /// the process has been closed: then it asks to stop, where nohup(1) does not forbid that.
    enum class Hangup { ends, reloads };

    /// Starts it, once in a process. From here on SIGINT and SIGTERM, and SIGHUP where it reloads,
    /// are blocked on this thread and on those that it starts.
    /// @throws std::system_error
    static Supervisor& start(Hangup hangup);
    Supervisor(const Supervisor&) = delete;
    Supervisor& operator=(const Supervisor&) = delete;

    /// From here on the first SIGINT or SIGTERM asks the loop to stop, and another one ends the
    /// process, which dies of it; before, the first one ends it.
    void stop_in_order() noexcept;

    /// At that time from now, instead of any before, counts as asked to stop by a first signal. The
    /// loop, which has timers of its own, is not woken.
    void stop_after(std::chrono::microseconds time) noexcept;

    /// From here on has `on_gone` called, on the thread of the supervisor, when whoever reads a
    /// pipe or a socket has gone. Once.
    void watch_reader(int fd, std::function<void()> on_gone);

    /// Asks the loop to stop; counts for no signal. Any thread.
    void request_stop() noexcept;
    /// Whether the loop has been asked to stop. Any thread.
    [[nodiscard]] bool stop_requested() const noexcept { return stop_requested_; }

    /// An eventfd that is readable from the request on.
    [[nodiscard]] int stop_event() const noexcept { return stop_event_.get(); }
    /// An eventfd that is readable when a SIGHUP has asked for a reload; whoever serves it reads
    /// it.
    [[nodiscard]] int reload_event() const noexcept { return reload_event_.get(); }

  private:
    using Clock = std::chrono::steady_clock;

    explicit Supervisor(Hangup hangup);
    [[noreturn]] void serve() noexcept;
    void serve_signal() noexcept;
    void take_request(int signal) noexcept;
    void ask_to_stop() noexcept;
    void note_first_request() noexcept;
    [[nodiscard]] bool is_hangup(const signalfd_siginfo& info) const noexcept;
    [[noreturn]] void end_process(int signal) noexcept;
    /// Names what the loop has waited for too long. @returns when to look again.
    [[nodiscard]] Clock::time_point look_at_loop(Clock::time_point now);

    common::Descriptor signals_;
    common::Descriptor stop_event_;
    common::Descriptor reload_event_;
    common::Descriptor wake_event_;
    const bool had_terminal_;
    const bool outlives_terminal_;
    std::function<void()> on_reader_gone_;
    std::atomic<int> reader_{-1};
    std::atomic<bool> in_order_{false};
    std::atomic<bool> stop_requested_{false};
    std::atomic<Clock::time_point> stop_at_{Clock::time_point::max()};
    // Of the thread.
    std::optional<Clock::time_point> first_request_;  ///< by a signal, or because time was over
    std::optional<Clock::time_point> stopping_since_;
    std::uint32_t named_ = 0;     ///< number of the activity that was named last
    bool named_in_stop_ = false;  ///< ... after the request to stop
};

}  // namespace host
