#include "host/output/repeated_log.hpp"

#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <utility>

#include "common/bus/bus.hpp"
#include "host/output/current_block.hpp"

namespace host {
namespace {

int make_timer() {
    const int fd = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    return common::check(fd < 0 ? -errno : fd, "cannot make a timer");
}

}  // namespace

RepeatedLog::RepeatedLog(std::function<void(const RepeatedLines::Line&)> tell)
    : lines_(std::move(tell)), timer_(make_timer()) {}

RepeatedLog::~RepeatedLog() {
    close(timer_);
}

void RepeatedLog::log(int level, const std::string& message) {
    const std::string* const block = CurrentBlock::name();
    if (lines_.log({block == nullptr ? std::string() : *block, level, message},
                   RepeatedLines::Clock::now()))
        set_timer();
}

void RepeatedLog::settle() {
    std::uint64_t times = 0;
    static_cast<void>(!read(timer_, &times, sizeof times));
    lines_.settle(RepeatedLines::Clock::now());
    if (lines_.is_counting())
        set_timer();
}

void RepeatedLog::set_timer() const noexcept {
    itimerspec in_a_gap{};
    in_a_gap.it_value.tv_nsec =
        std::chrono::duration_cast<std::chrono::nanoseconds>(RepeatedLines::gap).count();
    // Any thread may; the loop sees it.
    timerfd_settime(timer_, 0, &in_a_gap, nullptr);
}

}  // namespace host
