#include "host/runtime/event_loop.hpp"

#include <sys/epoll.h>
#include <systemd/sd-daemon.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "common/bus/callback.hpp"
#include "common/events/monotonic_clock.hpp"
#include "host/output/activity.hpp"
#include "host/runtime/crash_report.hpp"

namespace host {

EventLoop::EventLoop(Supervisor& supervisor) : supervisor_(supervisor) {
    common::check(sd_event_new(loop_.out()), "cannot make an event loop");
    sd_event* const loop = loop_.get();
    common::check(sd_event_add_io(loop, nullptr, supervisor.stop_event().get(), EPOLLIN,
                                  common::callback<&EventLoop::stop>, this),
                  "cannot serve signals");
}

EventLoop::~EventLoop() = default;

void EventLoop::attach(sd_bus& bus) {
    common::check(sd_bus_attach_event(&bus, loop_.get(), SD_EVENT_PRIORITY_NORMAL),
                  "cannot serve the bus");
    // Messages that blocks send when they stop, after the loop has ended, must still go out.
    common::check(sd_bus_set_close_on_exit(&bus, 0), "cannot keep the bus open");
    common::check(sd_bus_set_exit_on_disconnect(&bus, 1), "cannot watch the bus connection");
    buses_.push_back({&bus});
}

void EventLoop::serve_hangup(std::function<void()> handler) {
    on_hangup_ = std::move(handler);
    common::check(sd_event_add_io(loop_.get(), nullptr, supervisor_.reload_event().get(), EPOLLIN,
                                  common::callback<&EventLoop::on_hangup>, this),
                  "cannot serve signals");
}

void EventLoop::stop() noexcept {
    sd_event_exit(loop_.get(), 0);
}

void EventLoop::on_hangup() noexcept {
    supervisor_.reload_event().clear();
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    // With the time the service manager tells this reload from an earlier one.
    sd_notifyf(0, "RELOADING=1\nMONOTONIC_USEC=%lld",
               static_cast<long long>(now.tv_sec) * 1000000 + now.tv_nsec / 1000);
    on_hangup_();
    sd_notify(0, "READY=1");
}

void EventLoop::run(std::optional<std::chrono::microseconds> duration) {
    if (duration) {
        // A timer of the loop, in order with those of the blocks; the supervisor helps a blocked
        // loop.
        common::check(sd_event_add_time_relative(loop_.get(), nullptr, CLOCK_MONOTONIC,
                                                 static_cast<std::uint64_t>(duration->count()), 1,
                                                 common::callback<&EventLoop::stop>, this),
                      "cannot limit the time");
        supervisor_.stop_after(*duration);
    }
    sd_notify(0, "READY=1");
    common::check(sd_event_set_watchdog(loop_.get(), 1), "cannot serve the watchdog");
    const char* const failed = "the event loop failed";
    sd_event* const loop = loop_.get();
    for (;;) {
        const bool waits = is_ending() || settle();
        int r = sd_event_prepare(loop);
        if (r == -ESTALE)  // the loop has ended
            return;
        if (r == 0)
            r = sd_event_wait(loop, waits ? UINT64_MAX : 0);
        if (r < 0) {
            const Activity served("a block", "", "run or in a callback");
            end_without_descriptors();
        }
        common::check(r, failed);
        if (r == 0)
            continue;
        // The handler may be a block's; sd-bus does not tell which one's.
        const Activity serving("a callback", "", nullptr);
        common::check(sd_event_dispatch(loop), failed);
        for (Attached& attached : buses_)
            serve_flood(attached);
    }
}

void EventLoop::serve_flood(Attached& attached) {
    // Timers and signals do not wait longer for their turn.
    constexpr std::uint64_t most_time = 4000;       // microseconds since the event
    constexpr unsigned messages_between_looks = 8;  // at the clock
    constexpr unsigned longest_pause = 255;
    if (attached.left > 0) {
        --attached.left;
        return;
    }
    if (is_ending())
        return;
    std::uint64_t event_time = 0;
    sd_event_now(loop_.get(), CLOCK_MONOTONIC, &event_time);
    unsigned served = 0;
    const auto has_time = [&] {
        return served % messages_between_looks != 0 ||
               common::monotonic_now() - event_time < most_time;
    };
    // Blocks run after each message, as after each event.
    while (settle() && has_time() && sd_bus_process(attached.bus, nullptr) > 0)
        ++served;
    attached.pause = served > 0 ? 0 : std::min(2 * attached.pause + 1, longest_pause);
    attached.left = attached.pause;
}

bool EventLoop::is_ending() const noexcept {
    int code = 0;
    return sd_event_get_exit_code(loop_.get(), &code) != -ENODATA;
}

void EventLoop::announce_stop() {
    sd_notify(0, "STOPPING=1");
}

bool EventLoop::finish_sending(std::chrono::microseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    bool all = true;
    for (const Attached& attached : buses_)
        all = common::finish_sending(*attached.bus, deadline) && all;
    return all;
}

bool EventLoop::lost_bus() const noexcept {
    return std::any_of(buses_.begin(), buses_.end(),
                       [](const Attached& attached) { return sd_bus_is_open(attached.bus) <= 0; });
}

}  // namespace host
