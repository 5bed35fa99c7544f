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

/// The host's one loop, with what ends it: a request to stop, a lost bus.
class EventLoop {
  public:
    explicit EventLoop(Supervisor& supervisor);
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;
    ~EventLoop();

    [[nodiscard]] sd_event& get() const noexcept { return *loop_; }

    /// Serves one more connection, which outlives every later call and is detached by its own end.
    void attach(sd_bus& bus);

    /// Has the loop call `handler`, which must not throw, for each SIGHUP, once for those that came
    /// together; the service manager is told that the host reloads, and that it is ready again.
    void serve_hangup(std::function<void()> handler);

    /// Whether the loop has been asked to stop: asked while blocks are being started.
    [[nodiscard]] bool interrupted() const noexcept { return supervisor_.stop_requested(); }

    /// Tells the service manager that the host is ready and serves until something ends it. Where
    /// the service manager wants signs of life (WATCHDOG_USEC), they come from the loop, so that a
    /// block which does not return keeps them away.
    void run(std::optional<std::chrono::microseconds> duration);

    /// Tells the service manager that the host stops.
    static void announce_stop();

    /// Makes sure that the daemons have read all that was sent on the connections, and ends these;
    /// no handler is called. What still refers to them may only be released after it.
    /// @param limit for all together.
    /// @returns false where a daemon has not read everything by then.
    [[nodiscard]] bool finish_sending(std::chrono::microseconds limit);

    /// Whether one of the connections is gone; a blocking call of a block may have been the first
    /// to see it.
    [[nodiscard]] bool lost_bus() const noexcept;

  private:
    static int on_stop(sd_event_source* source, int fd, std::uint32_t events,
                       void* userdata) noexcept;
    void on_hangup() noexcept;
    int before_waiting() noexcept;
    void on_overdue() noexcept;
    [[nodiscard]] bool is_overdue(sd_bus& bus) const noexcept;
    void on_disconnected() noexcept;

    struct Attached {
        sd_bus* bus;
        common::SlotPtr disconnected;
    };

    Supervisor& supervisor_;
    common::EventPtr loop_;
    common::EventSourcePtr each_round_;
    common::EventSourcePtr overdue_;
    std::vector<Attached> buses_;
    std::function<void()> on_hangup_;
};

}  // namespace host
