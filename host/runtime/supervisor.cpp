#include "host/runtime/supervisor.hpp"

#include <fcntl.h>
#include <fmt/core.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <string>
#include <utility>

#include "common/bus/bus.hpp"
#include "common/process/background_thread.hpp"
#include "common/text/line_text.hpp"
#include "host/output/activity.hpp"
#include "host/output/standard_streams.hpp"

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
    common::check(-pthread_sigmask(SIG_BLOCK, &signals, nullptr), "cannot block signals");
    const int fd = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    return common::check(fd < 0 ? -errno : fd, "cannot serve signals");
}

/// Whether the process has a terminal that controls it.
bool has_terminal() noexcept {
    return common::Descriptor(open("/dev/tty", O_RDONLY | O_NOCTTY | O_CLOEXEC)).get() >= 0;
}

bool ignores_hangup() noexcept {
    struct sigaction action {};
    return sigaction(SIGHUP, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

Supervisor& Supervisor::start(Hangup hangup) {
    static auto* const supervisor = new Supervisor(hangup);
    return *supervisor;
}

Supervisor::Supervisor(Hangup hangup)
    : signals_(make_signalfd(hangup)),
      had_terminal_(has_terminal()),
      outlives_terminal_(ignores_hangup()) {
    common::start_background_thread([this] { serve(); });
}

void Supervisor::stop_in_order() noexcept {
    if (!change(State::starting, State::running))
        change(State::stop_pending, State::stopping);
}

void Supervisor::stop_after(std::chrono::microseconds time) noexcept {
    stop_at_ = Clock::now() + time;
    wake_event_.set();
}

void Supervisor::watch_reader(int fd, std::function<void()> on_gone) {
    on_reader_gone_ = std::move(on_gone);
    reader_ = fd;
    wake_event_.set();
}

void Supervisor::request_stop() noexcept {
    enter_stop();
    stop_event_.set();
    wake_event_.set();
}

void Supervisor::enter_stop() noexcept {
    if (!change(State::starting, State::stop_pending))
        change(State::running, State::stopping);
}

void Supervisor::serve() noexcept {
    for (;;) {
        const auto now = Clock::now();
        if (now >= stop_at_.load()) {
            stop_at_ = Clock::time_point::max();
            note_first_request();
        }
        const auto next = std::min(look_at_loop(now), stop_at_.load());
        const std::int64_t left = std::max(std::chrono::nanoseconds(next - now), 0ns).count();
        const timespec timeout{static_cast<time_t>(left / 1'000'000'000),
                               static_cast<long>(left % 1'000'000'000)};
        // poll() reports the end of the reader without being asked for an event.
        pollfd events[] = {
            {signals_.get(), POLLIN, 0}, {wake_event_.get(), POLLIN, 0}, {reader_.load(), 0, 0}};
        ppoll(events, std::size(events), &timeout, nullptr);
        wake_event_.clear();
        serve_signal();
        if (events[2].revents != 0) {
            reader_ = -1;
            on_reader_gone_();
        }
    }
}

void Supervisor::serve_signal() noexcept {
    signalfd_siginfo info{};
    if (read(signals_.get(), &info, sizeof info) != sizeof info)
        return;
    const int signal = static_cast<int>(info.ssi_signo);
    if (signal != SIGHUP)
        take_request(signal);
    else if (!is_hangup(info))
        reload_event_.set();
    else if (outlives_terminal_)
        return;
    else
        ask_to_stop(signal);
}

bool Supervisor::is_hangup(const signalfd_siginfo& info) const noexcept {
    // The kernel sends it to the first process of a session, usually a shell, and to the foreground
    // when that one ends; a shell sends it to the others, once the terminal is gone.
    if (info.ssi_code == SI_KERNEL)
        return true;
    return had_terminal_ && static_cast<pid_t>(info.ssi_pid) == getsid(0) && !has_terminal();
}

void Supervisor::take_request(int signal) noexcept {
    if (first_request_ && Clock::now() - *first_request_ >= one_request)
        end_process(signal);
    ask_to_stop(signal);
}

void Supervisor::ask_to_stop(int signal) noexcept {
    const State state = state_;
    if (state == State::starting || state == State::stop_pending)
        end_process(signal);
    note_first_request();
    request_stop();
}

void Supervisor::note_first_request() noexcept {
    if (!first_request_)
        first_request_ = Clock::now();
    enter_stop();
    drop_unread_lines();
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
    const bool stopping = stop_requested();
    if (stopping && !stopping_since_)
        stopping_since_ = now;
    const auto limit = stopping ? limit_in_stop : limit_in_run;
    const Activity::Seen seen = Activity::seen();
    const bool is_new = std::exchange(seen_, seen.number) != seen.number;
    if (is_new)
        seen_since_ = seen.since.value_or(now);
    if (seen.text.empty()) {
        // Where nothing has happened for so long, nobody is woken until something happens.
        const bool sleeps =
            !is_new && !stopping && Activity::notify_at_begin(wake_event_.get(), seen.number);
        return sleeps ? Clock::time_point::max() : now + limit;
    }
    if (seen.number == named_ && named_in_stop_ == stopping)
        return now + limit;
    const auto due = limit + (stopping ? std::max(*stopping_since_, seen_since_) : seen_since_);
    if (now < due)
        return due;
    named_ = seen.number;
    named_in_stop_ = stopping;
    const std::string what = common::one_line(seen.text);
    std::string line = stopping ? fmt::format("waits for {}", what)
                                : fmt::format("has waited {} s for {}", limit.count(), what);
    if (first_request_)
        line += "; a further SIGINT or SIGTERM ends the process at once";
    say_at_once(common::Severity::warning, line, seen.block);
    return now + limit;
}

}  // namespace host
