#pragma once

#include <sys/signalfd.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <chrono>
#include <functional>
#include <optional>
#include <vector>

#include "common/bus.hpp"

namespace host {

/// The host's one loop, with what ends it: SIGINT and SIGTERM, a time, a lost bus.
class EventLoop {
  public:
    /// Blocks SIGINT and SIGTERM for the process, so that they are served by the loop.
    EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;
    ~EventLoop();

    [[nodiscard]] sd_event& get() const noexcept { return *loop_; }

    /// Serves one more connection, which outlives every later call and is detached by its own end.
    void attach(sd_bus& bus);

    /// Keeps SIGHUP from ending the process: it waits until `serve_hangup`.
    static void hold_hangup();

    /// Has the loop call `handler`, which must not throw, for each SIGHUP, once for those that came
    /// together; the service manager is told that the host reloads, and that it is ready again.
    void serve_hangup(std::function<void()> handler);

    /// Whether SIGINT or SIGTERM waits to be served: asked while blocks are being started.
    [[nodiscard]] bool interrupted() const;

    /// Ends the loop, or the start before it, as SIGTERM does. Any thread.
    static void ask_to_stop() noexcept;

    /// Tells the service manager that the host is ready and serves until something ends it.
    void run(std::optional<std::chrono::microseconds> duration);

    /// Tells the service manager that the host stops; a further SIGINT ends the process at once.
    void announce_stop();

    /// Whether one of the connections is gone; a blocking call of a block may have been the first
    /// to see it.
    [[nodiscard]] bool lost_bus() const noexcept;

  private:
    static int on_hangup(sd_event_source* source, const signalfd_siginfo* info,
                         void* userdata) noexcept;
    static int before_waiting(sd_event_source* source, void* userdata) noexcept;
    static int on_overdue(sd_event_source* source, void* userdata) noexcept;
    [[nodiscard]] bool is_overdue(sd_bus& bus) const noexcept;
    static int on_disconnected(sd_bus_message* message, void* userdata,
                               sd_bus_error* error) noexcept;

    struct Attached {
        sd_bus* bus;
        tool::SlotPtr disconnected;
    };

    tool::EventPtr loop_;
    tool::EventSourcePtr each_round_;
    tool::EventSourcePtr overdue_;
    std::vector<Attached> buses_;
    std::function<void()> on_hangup_;
};

}  // namespace host
