#pragma once

#include <systemd/sd-event.h>

#include <chrono>
#include <cstdint>

#include "common/bus/bus.hpp"
#include "fenwa/block.hpp"

namespace host {

/// The host's own block type "Timer": output "out" of the timer-source datatype, one value each
/// "interval" milliseconds (integer, 1 or more; required), the first one interval after `start`.
/// Drops the ticks that a busy host has missed.
class TimerBlock final : public Fenwa::Block {
  public:
    /// @param loop drives the timer and outlives the block; null in a probe.
    /// @throws Fenwa::ConfigurationError when the interval is missing or wrong.
    TimerBlock(std::string name, const Fenwa::BlockConfiguration& config, sd_event* loop);

    /// @throws std::system_error when the loop cannot add a timer.
    void start() override;
    void stop() override;
    bool run() override;
    /// Takes the interval from `after`; a changed one restarts the timer.
    /// @throws Fenwa::ConfigurationError when it is missing or wrong.
    void reconfigure(const Fenwa::BlockConfiguration& before,
                     const Fenwa::BlockConfiguration& after) override;

  private:
    void begin();
    int on_time(sd_event_source& source, std::uint64_t due) noexcept;

    Fenwa::OutPort<Fenwa::datatype_timersource>* out_;
    Fenwa::EventPort* tick_;
    sd_event* loop_;
    std::chrono::microseconds interval_;
    std::uint64_t ticks_ = 0;
    common::EventSourcePtr timer_;
};

}  // namespace host
