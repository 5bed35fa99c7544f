#pragma once

#include <systemd/sd-event.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <queue>
#include <thread>
#include <unordered_map>
#include <vector>

#include "common/bus/bus.hpp"
#include "fenwa/block.hpp"
#include "framework/shared/ready_queue.hpp"
#include "host/runtime/event_fd.hpp"
#include "host/runtime/throttle.hpp"

namespace host {

/// Runs the blocks of an sd-event loop between its events. In one pass every block that is ready
/// runs once, in the order in which they became ready; passes follow until no block is ready.
/// Blocks that are always ready make a limited number of passes, and then the loop serves an event,
/// so that they keep nobody out. A block that has spent its budget of runs waits until it has one
/// again, while its marks stay pending and the others go on. If such a block retries, that is, its
/// last run called over the bus or fired the block itself, it takes turns with all others of this
/// kind in a budget of processor time. The cost of a pass is proportional to the number of ready
/// blocks. Thread of the loop.
class Scheduler {
  public:
    /// Passes between two events.
    static constexpr int max_passes = 16;

    /// @param rate_limit of each block.
    /// @param run_block runs one block whose ports may be triggered, and is given the time of the
    ///        loop's event in microseconds of CLOCK_MONOTONIC; what it throws ends the loop and is
    ///        kept in `failure()`.
    /// @param processor_time of the thread of the loop so far, in nanoseconds.
    Scheduler(sd_event& loop, const RateLimit& rate_limit,
              std::function<void(Fenwa::Block&, std::uint64_t)> run_block,
              std::function<std::uint64_t()> processor_time = thread_processor_time);
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;
    ~Scheduler();

    /// The queue to which blocks add themselves when they become ready; on any thread.
    [[nodiscard]] Fenwa::ReadyQueue& queue() noexcept { return queue_; }

    /// Gives every block a new, full budget; waiting blocks run in the next pass.
    void set_rate_limit(const RateLimit& rate_limit);

    /// From here on blocks wait while `unanswered` returns too many calls that the bus owes a
    /// reply. `answered` is to be called for each reply.
    void hold_for_answers(std::function<std::size_t()> unanswered) {
        unanswered_ = std::move(unanswered);
    }
    void answered() noexcept;
    /// From here on a run during which `calls`, the number of calls of all blocks so far, goes up
    /// counts as one that called over the bus.
    void count_calls(std::function<std::uint64_t()> calls) { calls_ = std::move(calls); }

    /// A match that this block has requested again and again is refused once more: the block's runs
    /// wait for its turn among all of these, see `RefusedMatches`.
    void match_refused(Fenwa::Block& block);
    /// A match that this block has requested is installed.
    void match_installed(Fenwa::Block& block);
    /// From here on `requested` returns the number of matches that are requested and not answered.
    void follow_matches(std::function<std::size_t()> requested) {
        matches_requested_ = std::move(requested);
    }
    /// Something has changed for this block: it need not wait for its turn.
    void let_try(Fenwa::Block& block);

    /// From here on these blocks, which are about to be destroyed, neither run nor are referred to.
    /// Between two passes.
    void forget(const std::vector<Fenwa::Block*>& blocks);

    /// Whether the block's runs wait for their turns, because it has spent its budget, or its match
    /// is refused again and again.
    [[nodiscard]] bool is_paced(Fenwa::Block& block) const;

    /// From here on passes are made; blocks that became ready before run first.
    void enable();
    /// Makes the passes that are due; to be called between two events.
    /// @returns whether blocks are ready still or one has thrown, so that the loop must not wait.
    bool run_ready_blocks() noexcept;
    /// No pass is made any more.
    void disable();

    /// Keeps what a block threw and ends the loop.
    void fail(std::exception_ptr failure) noexcept;

    /// The exception of a block, or null.
    [[nodiscard]] std::exception_ptr failure() const noexcept { return failure_; }

  private:
    /// Whether a pass is to be made for the blocks that became ready on the thread of the loop.
    enum class State {
        disabled,          ///< never
        idle,              ///< no block has become ready
        due,               ///< before the next event
        passing,           ///< a pass is running
        passing_and_ready  ///< a pass is running, and blocks have become ready in it
    };

    /// A ready block that has no run left before `due`.
    struct Waiting {
        std::uint64_t due;
        std::uint64_t number;  ///< orders those with the same time
        Fenwa::Block* block;

        friend bool operator>(const Waiting& a, const Waiting& b) {
            return a.due != b.due ? a.due > b.due : a.number > b.number;
        }
    };

    /// The record of one block's runs.
    struct Account {
        TokenBucket budget;
        std::uint64_t tries =
            0;               ///< last runs in a row that called over the bus or fired the block
        bool spent = false;  ///< as many tries as the burst, or a run had to wait
        std::uint64_t ran_at = 0;  ///< last
    };

    void change(State next) noexcept { state_ = next; }
    [[nodiscard]] bool is_due() const noexcept {
        return state_ == State::due && failure_ == nullptr;
    }
    void request_pass() noexcept;
    void wake() noexcept;
    void on_wake() noexcept;
    void on_turn() noexcept;
    void make_passes() noexcept;
    void run_ready();
    [[nodiscard]] bool are_matches_answered() const;
    void add_those_refused();
    void run_retrying();
    void charge_rest();
    void run_and_watch(Fenwa::Block& block, Account& account);
    bool should_wait();
    void run_within_budget(Fenwa::Block& block);
    void wait_for_next_turn();
    [[nodiscard]] std::uint64_t now() const;
    static std::uint64_t thread_processor_time();

    sd_event& loop_;
    RateLimit rate_limit_;
    std::function<void(Fenwa::Block&, std::uint64_t)> run_block_;
    std::thread::id thread_ = std::this_thread::get_id();
    EventFd woken_;  ///< by other threads
    Fenwa::ReadyQueue queue_;
    common::EventSourcePtr source_;
    State state_ = State::disabled;
    common::EventSourcePtr timer_;
    std::uint64_t timer_due_ = UINT64_MAX;  ///< UINT64_MAX while it is off
    std::vector<Fenwa::Block*> ready_;      ///< of the pass
    std::uint64_t now_ = 0;                 ///< of the passes, that is, of the loop's event
    std::unordered_map<const Fenwa::Block*, Account> accounts_;
    std::priority_queue<Waiting, std::vector<Waiting>, std::greater<>> waiting_;
    std::uint64_t waited_ = 0;  ///< how many have had to wait so far
    std::function<std::uint64_t()> processor_time_;
    RetryBudget retry_budget_;
    std::deque<Fenwa::Block*> retrying_;  ///< waiting for their turn in it
    std::uint64_t retried_at_ = 0;        ///< processor time at the end of the last turns
    std::size_t retries_ = 0;             ///< runs in those turns
    std::size_t other_runs_ = 0;          ///< runs since then
    RefusedMatches refused_;
    std::function<std::size_t()> matches_requested_;
    std::function<std::size_t()> unanswered_;
    std::function<std::uint64_t()> calls_;
    Backpressure backpressure_;
    std::vector<Fenwa::Block*> held_;  ///< ready before the next pass
    std::exception_ptr failure_;
};

}  // namespace host
