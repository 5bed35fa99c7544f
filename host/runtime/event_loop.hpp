#pragma once

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <chrono>
#include <functional>
#include <optional>
#include <vector>

#include "common/bus/bus.hpp"
#include "host/runtime/supervisor.hpp"

namespace host {

/// The event loop of the host, which ends on a request to stop or a lost bus.
class EventLoop {
  public:
    explicit EventLoop(Supervisor& supervisor);
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;
    ~EventLoop();

    [[nodiscard]] sd_event& get() const noexcept { return *loop_; }

    /// From here on calls `round` before each wait for an event. If it returns true, the loop
    /// serves the events that have come and does not wait. Must not throw; empty for none.
    void serve_between_events(std::function<bool()> round) { round_ = std::move(round); }

    /// Serves one more connection, which outlives every later call and is detached when it is
    /// closed.
    void attach(sd_bus& bus);

    /// Calls `handler`, which must not throw, for each SIGHUP, once for several that came together,
    /// and reports the reload and its end to the service manager.
    void serve_hangup(std::function<void()> handler);

    /// Whether the loop has been asked to stop, which may be before it runs.
    [[nodiscard]] bool interrupted() const noexcept { return supervisor_.stop_requested(); }

    /// Reports to the service manager that the host is ready, and serves until something ends it.
    /// With WATCHDOG_USEC the loop sends the keep-alives, so that a block which does not return
    /// keeps them away.
    void run(std::optional<std::chrono::microseconds> duration);

    /// Reports to the service manager that the host stops.
    static void announce_stop();

    /// Waits until the daemons have read all that was sent on the connections, and closes these; no
    /// handler is called. Objects that refer to the connections may be released only after it.
    /// @param limit for all connections together.
    /// @returns false if a daemon has not read everything by then.
    [[nodiscard]] bool finish_sending(std::chrono::microseconds limit);

    /// Whether one of the connections is closed; a blocking call of a block may have been the first
    /// to notice.
    [[nodiscard]] bool lost_bus() const noexcept;

  private:
    /// A connection. Looking for a second message that has come already saves a round of the loop,
    /// and costs a system call in vain if there is none; after a look in vain, the next ones are
    /// left out.
    struct Attached {
        sd_bus* bus;
        unsigned pause = 0;  ///< events that the last pause took
        unsigned left = 0;   ///< events of the pause that are to come
    };

    void stop() noexcept;
    void on_hangup() noexcept;
    /// Makes a round. @returns whether nothing is left to do before the next event.
    bool settle() { return !round_ || !round_(); }
    [[nodiscard]] bool is_ending() const noexcept;
    void serve_flood(Attached& attached);

    Supervisor& supervisor_;
    common::EventPtr loop_;
    std::vector<Attached> buses_;
    std::function<bool()> round_;
    std::function<void()> on_hangup_;
};

}  // namespace host
