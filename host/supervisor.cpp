#include "host/supervisor.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <string>
#include <thread>

#include "common/bus.hpp"
#include "common/diagnostics.hpp"
#include "host/activity.hpp"
#include "host/urgent_line.hpp"

namespace host {
namespace {

using namespace std::chrono_literals;

/// How long a block may take without being named.
constexpr std::chrono::seconds limit_in_run = 5s;
constexpr std::chrono::seconds limit_in_stop = 1s;

/// Signals that follow each other within this time are one request: timeout(1) sends two at once.
constexpr std::chrono::milliseconds one_request = 50ms;

sigset_t served_signals(Supervisor::Hangup hangup) {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM})
        sigaddset(&signals, signal);
    if (hangup == Supervisor::Hangup::reloads)
        sigaddset(&signals, SIGHUP);
    return signals;
}

int make_signalfd(Supervisor::Hangup hangup) {
    const sigset_t signals = served_signals(hangup);
    tool::check(-pthread_sigmask(SIG_BLOCK, &signals, nullptr), "cannot block signals");
    const int fd = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    return tool::check(fd < 0 ? -errno : fd, "cannot serve signals");
}

int make_eventfd() {
    const int fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return tool::check(fd < 0 ? -errno : fd, "cannot make an eventfd");
}

void set(const tool::Descriptor& event) noexcept {
    // Fails only when the counter is full, and then the event is set anyway.
    static_cast<void>(eventfd_write(event.get(), 1));
}

}  // namespace

Supervisor& Supervisor::start(Hangup hangup) {
    static auto* const supervisor = new Supervisor(hangup);
    return *supervisor;
}

Supervisor::Supervisor(Hangup hangup)
    : signals_(make_signalfd(hangup)),
      stop_event_(make_eventfd()),
      reload_event_(make_eventfd()),
      wake_event_(make_eventfd()) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    // What is meant for a handler of a block is not for this thread.
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread([this] { serve(); }).detach();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void Supervisor::stop_in_order() noexcept {
    in_order_ = true;
}

void Supervisor::stop_after(std::chrono::microseconds time) noexcept {
    stop_at_ = Clock::now() + time;
    set(wake_event_);
}

void Supervisor::request_stop() noexcept {
    stop_requested_ = true;
    set(stop_event_);
    set(wake_event_);
}

void Supervisor::serve() noexcept {
    for (;;) {
        const auto now = Clock::now();
        if (now >= stop_at_.load()) {
            stop_at_ = Clock::time_point::max();
            if (!first_request_)
                first_request_ = now;
            request_stop();
        }
        const auto next = std::min(look_at_loop(now), stop_at_.load());
        const std::int64_t left = std::max(std::chrono::nanoseconds(next - now), 0ns).count();
        const timespec timeout{left / 1'000'000'000, left % 1'000'000'000};
        pollfd events[] = {{signals_.get(), POLLIN, 0}, {wake_event_.get(), POLLIN, 0}};
        ppoll(events, std::size(events), &timeout, nullptr);
        eventfd_t count = 0;
        static_cast<void>(eventfd_read(wake_event_.get(), &count));
        serve_signal();
    }
}

void Supervisor::serve_signal() noexcept {
    signalfd_siginfo info{};
    if (read(signals_.get(), &info, sizeof info) != sizeof info)
        return;
    const int signal = static_cast<int>(info.ssi_signo);
    if (signal == SIGHUP)
        set(reload_event_);
    else
        take_request(signal);
}

void Supervisor::take_request(int signal) noexcept {
    const auto now = Clock::now();
    if (!in_order_ || (first_request_ && now - *first_request_ >= one_request))
        end_process(signal);
    if (!first_request_)
        first_request_ = now;
    request_stop();
}

void Supervisor::end_process(int signal) noexcept {
    std::signal(signal, SIG_DFL);
    sigset_t unblocked;
    sigemptyset(&unblocked);
    sigaddset(&unblocked, signal);
    pthread_sigmask(SIG_UNBLOCK, &unblocked, nullptr);
    kill(getpid(), signal);
    _exit(128 + signal);  // unreachable, unless the process is the first of a container
}

Supervisor::Clock::time_point Supervisor::look_at_loop(Clock::time_point now) {
    const bool stopping = stop_requested_;
    if (stopping && !stopping_since_)
        stopping_since_ = now;
    const auto limit = stopping ? limit_in_stop : limit_in_run;
    const std::optional<Activity::Seen> seen = Activity::seen();
    if (!seen || (seen->number == named_ && named_in_stop_ == stopping))
        return now + limit;
    const auto due = limit + (stopping ? std::max(*stopping_since_, seen->since) : seen->since);
    if (now < due)
        return due;
    named_ = seen->number;
    named_in_stop_ = stopping;
    std::string line = "fenwa: ";
    line += stopping ? "waits for " : "has waited " + std::to_string(limit.count()) + " s for ";
    line += tool::one_line(seen->text);
    if (first_request_)
        line += "; a further SIGINT or SIGTERM ends the process at once";
    write_urgently(line + '\n');
    return now + limit;
}

}  // namespace host
