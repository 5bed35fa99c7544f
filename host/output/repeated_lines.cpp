#include "host/output/repeated_lines.hpp"

#include <cstdio>
#include <iterator>
#include <utility>

namespace host {

bool RepeatedLines::log(Line line, Clock::time_point now) {
    const std::lock_guard lock(mutex_);
    // Now and then only, or each of many different lines would cost a look at all the others.
    if (now - looked_through_ >= gap)
        settle_locked(now);
    const auto [found, is_new] = runs_.try_emplace(std::move(line), Run{now, now});
    auto& [known, run] = *found;
    const bool follows = !is_new && now - run.last < gap;
    if (!follows && run.untold > 0)
        tell_number(known, run);
    run.last = now;
    if (!follows) {
        run.told = now;
        tell_(known);
        return false;
    }
    if (run.untold++ > 0)
        return false;
    return counting_++ == 0;
}

void RepeatedLines::settle(Clock::time_point now) {
    const std::lock_guard lock(mutex_);
    settle_locked(now);
}

void RepeatedLines::settle_locked(Clock::time_point now) {
    looked_through_ = now;
    for (auto at = runs_.begin(); at != runs_.end();) {
        auto& [line, run] = *at;
        const bool ended = now - run.last >= gap;
        if (run.untold > 0 && (ended || now - run.told >= period))
            tell_number(line, run);
        at = ended ? runs_.erase(at) : std::next(at);
    }
}

void RepeatedLines::finish() {
    const std::lock_guard lock(mutex_);
    for (auto& [line, run] : runs_) {
        if (run.untold > 0)
            tell_number(line, run);
    }
    runs_.clear();
}

bool RepeatedLines::is_counting() const {
    const std::lock_guard lock(mutex_);
    return counting_ > 0;
}

void RepeatedLines::tell_number(const Line& line, Run& run) {
    const std::chrono::duration<double> time = run.last - run.told;
    char number[64];
    std::snprintf(number, sizeof number,
                  "repeated %llu %s in %.1f s: ", static_cast<unsigned long long>(run.untold),
                  run.untold == 1 ? "time" : "times", time.count());
    run.told = run.last;
    run.untold = 0;
    --counting_;
    tell_({line.block, line.level, number + line.message});
}

}  // namespace host
