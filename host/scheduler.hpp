#pragma once

#include <systemd/sd-event.h>

#include <exception>
#include <functional>

#include "common/bus.hpp"
#include "fenwa/block.hpp"
#include "framework/shared/ready_queue.hpp"

namespace host {

/// Runs blocks from an sd-event loop. In one pass every block that is ready runs once, in the
/// order in which they became ready; between two passes the loop serves the bus and the timers,
/// so that no block starves another. A pass costs as much as there are ready blocks.
class Scheduler {
  public:
    /// @param run_block runs one block whose ports may be triggered; what it throws ends the loop
    ///        and is kept in `failure()`.
    Scheduler(sd_event& loop, std::function<void(Fenwa::Block&)> run_block);
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;
    ~Scheduler();

    /// Where blocks say that they are ready; on any thread.
    [[nodiscard]] Fenwa::ReadyQueue& queue() noexcept { return queue_; }

    /// From here on passes are made; what became ready before runs first.
    void enable();
    /// No pass is made any more.
    void disable();

    /// Keeps what a block threw and ends the loop.
    void fail(std::exception_ptr failure) noexcept;

    /// What a block threw, or null.
    [[nodiscard]] std::exception_ptr failure() const noexcept { return failure_; }

  private:
    static int on_wake(sd_event_source* source, int fd, std::uint32_t events,
                       void* userdata) noexcept;
    void wake() const noexcept;
    void pass();

    sd_event& loop_;
    std::function<void(Fenwa::Block&)> run_block_;
    int event_fd_;
    Fenwa::ReadyQueue queue_;
    tool::EventSourcePtr source_;
    std::exception_ptr failure_;
};

}  // namespace host
