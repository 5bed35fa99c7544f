#include "camera/process/reaper.hpp"

#include <fmt/core.h>
#include <sys/wait.h>

#include <csignal>
#include <utility>

#include "common/bus/callback.hpp"
#include "common/events/message.hpp"
#include "common/process/process_tree.hpp"
#include "common/process/program.hpp"

namespace camera {
namespace {

constexpr std::chrono::seconds kill_timeout{10};

}  // namespace

Reaper::Reaper(sd_event& event, std::function<void()> reaped)
    : reaped_(std::move(reaped)), timers_(event) {
    common::adopt_orphans();
    common::check(sd_event_add_signal(&event, source_.out(), SIGCHLD,
                                      common::callback<&Reaper::on_child_ended>, this),
                  "cannot serve signals");
}

void Reaper::watch(pid_t child, std::function<void(int status)> ended) {
    watched_[child] = std::move(ended);
}

void Reaper::forget(pid_t child) noexcept {
    watched_.erase(child);
}

bool Reaper::any() const {
    return !others().empty();
}

std::set<pid_t> Reaper::others() const {
    const std::vector<pid_t> children = common::children_of_this_process();
    std::set<pid_t> others(children.begin(), children.end());
    // The list may lack them, where no descriptor is left to read it.
    for (const auto& [child, ended] : watched_)
        others.insert(child);
    others.erase(left_);
    return others;
}

void Reaper::end_children() {
    enter(State::terminating);
    timers_.once(kill_timeout, [this] { enter(State::killing); });
}

void Reaper::enter(State state) {
    state_ = state;
    signalled_.clear();
    if (state_ == State::killing && any())
        common::print_message(common::Severity::warning,
                              fmt::format("programs still run {} s after SIGTERM; killing them",
                                          kill_timeout.count()));
    signal_children();
}

void Reaper::signal_children() {
    if (state_ == State::watching)
        return;
    for (const pid_t child : others()) {
        if (signalled_.insert(child).second)
            kill(child, state_ == State::killing ? SIGKILL : SIGTERM);
    }
}

void Reaper::on_child_ended() {
    bool any_reaped = false;
    for (const pid_t child : others()) {
        int status = 0;
        if (waitpid(child, &status, WNOHANG) != child)
            continue;
        any_reaped = true;
        signalled_.erase(child);
        if (const auto watch = watched_.extract(child); !watch.empty())
            watch.mapped()(common::exit_code_of(status));
    }
    signal_children();
    if (any_reaped)
        reaped_();
}

}  // namespace camera
