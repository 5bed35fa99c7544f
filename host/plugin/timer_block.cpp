#include "host/plugin/timer_block.hpp"

#include <ctime>

#include "common/bus/callback.hpp"
#include "fenwa/ports.hpp"

namespace host {
namespace {

std::chrono::milliseconds read_interval(const Fenwa::BlockConfiguration& config) {
    const int interval = config.getInt("interval");
    if (interval < 1)
        throw Fenwa::ConfigurationError("interval", "int of 1 or more (milliseconds)",
                                        "the integer " + std::to_string(interval));
    return std::chrono::milliseconds(interval);
}

}  // namespace

TimerBlock::TimerBlock(std::string name, const Fenwa::BlockConfiguration& config, sd_event* loop)
    : Fenwa::Block(std::move(name), config),
      out_(Fenwa::add_outport<Fenwa::datatype_timersource>(*this, "out")),
      tick_(make_eventport("tick")),
      loop_(loop),
      interval_(read_interval(config)) {}

void TimerBlock::start() {
    begin();
}

void TimerBlock::begin() {
    // For sd-event, accuracy 0 means a quarter of a second.
    common::check(sd_event_add_time_relative(loop_, timer_.out(), CLOCK_MONOTONIC,
                                             static_cast<std::uint64_t>(interval_.count()), 1,
                                             common::callback<&TimerBlock::on_time>, this),
                  "cannot start a timer");
}

void TimerBlock::reconfigure(const Fenwa::BlockConfiguration& /*before*/,
                             const Fenwa::BlockConfiguration& after) {
    const std::chrono::milliseconds interval = read_interval(after);
    if (interval == interval_)
        return;
    interval_ = interval;
    if (timer_ != nullptr)
        begin();
}

void TimerBlock::stop() {
    timer_.reset();
}

bool TimerBlock::run() {
    out_->publish({ticks_, std::chrono::duration_cast<std::chrono::milliseconds>(interval_)});
    return true;
}

int TimerBlock::on_time(sd_event_source& source, std::uint64_t due) noexcept {
    const auto interval = static_cast<std::uint64_t>(interval_.count());
    std::uint64_t now = due;
    sd_event_now(loop_, CLOCK_MONOTONIC, &now);
    // Counted from the due time, so that the period does not drift.
    const std::uint64_t periods = 1 + (now > due ? (now - due) / interval : 0);
    ++ticks_;
    tick_->fire();
    int r = sd_event_source_set_time(&source, due + periods * interval);
    if (r >= 0)
        r = sd_event_source_set_enabled(&source, SD_EVENT_ON);
    return r;
}

}  // namespace host
