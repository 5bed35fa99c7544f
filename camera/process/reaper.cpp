#include "camera/process/reaper.hpp"

#include <sys/wait.h>

#include <csignal>
#include <utility>

#include "common/bus/callback.hpp"
#include "common/bus/out.hpp"
#include "common/process/process_tree.hpp"
#include "common/process/program.hpp"

namespace camera {
namespace {

constexpr std::chrono::seconds kill_timeout{10};

}  // namespace

Reaper::Reaper(sd_event& event, std::function<void()> reaped)
    : reaped_(std::move(reaped)), timers_(event) {
    common::adopt_orphans();
    common::check(sd_event_add_signal(&event, common::out(source_), SIGCHLD,
                                      common::callback<&Reaper::on_child_ended>, this),
                  "sd_event_add_signal");
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
    // Known without a list too, for which there may be no descriptor left.
    for (const auto& [child, ended] : watched_)
        others.insert(child);
    others.erase(left_);
    return others;
}

void Reaper::ask_to_end() {
    signal_ = SIGTERM;
    signal_all();
    timers_.once(kill_timeout, [this] {
        signal_ = SIGKILL;
        signalled_.clear();
        signal_all();
    });
}

void Reaper::signal_all() {
    for (const pid_t child : others()) {
        if (signalled_.insert(child).second)
            kill(child, signal_);
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
    if (signal_ != 0)
        signal_all();
    if (any_reaped)
        reaped_();
}

}  // namespace camera
