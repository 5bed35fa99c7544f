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
#include "host/graph/rate_limit.hpp"
#include "host/runtime/backpressure.hpp"
#include "host/runtime/refused_matches.hpp"

namespace host {

/// Runs blocks from an sd-event loop. In one pass every block that is ready runs once, in the
/// order in which they became ready; between two passes the loop serves the bus and the timers,
/// so that no block starves another. A block that has spent its budget of runs waits until it has
/// one again, while its marks stay pending and the others go on. Where such a block tries again,
/// that is, its last run called over the bus or fired the block itself, it takes turns with all
/// others of this kind in a budget of processor time. A pass costs as much as there are ready
/// blocks.
class Scheduler {
  public:
    /// @param pace the budget of each block.
    /// @param run_block runs one block whose ports may be triggered; what it throws ends the loop
    ///        and is kept in `failure()`.
    /// @param processor_time that the thread of the loop has taken so far, in nanoseconds.
    Scheduler(sd_event& loop, const RateLimit& rate_limit,
              std::function<void(Fenwa::Block&)> run_block,
              std::function<std::uint64_t()> processor_time = thread_processor_time);
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;
    ~Scheduler();

    /// Where blocks say that they are ready; on any thread.
    [[nodiscard]] Fenwa::ReadyQueue& queue() noexcept { return queue_; }

    /// Gives every block a new budget, full as at first; those that wait run in the next pass.
    void set_rate_limit(const RateLimit& rate_limit);

    /// From here on blocks are held back while `unanswered` gives too many calls that the bus owes
    /// an answer. `answered` is to be called for each answer.
    void hold_for_answers(std::function<std::size_t()> unanswered) {
        unanswered_ = std::move(unanswered);
    }
    void answered() noexcept;
    /// From here on it is known which runs call over the bus: those during which `calls`, all that
    /// blocks have made so far, goes up.
    void count_calls(std::function<std::uint64_t()> calls) { calls_ = std::move(calls); }

    /// A match that this block has asked for again and again is refused once more: the block's runs
    /// wait for its turn among all of these, see `RefusedMatches`.
    void match_refused(Fenwa::Block& block);
    /// A match that this block has asked for is installed.
    void match_installed(Fenwa::Block& block);
    /// From here on `asked` gives the number of matches that are asked for and not answered.
    void follow_matches(std::function<std::size_t()> asked) { matches_asked_ = std::move(asked); }
    /// Something has changed for this block: it need not wait for its turn.
    void let_try(Fenwa::Block& block);

    /// From here on passes are made; what became ready before runs first.
    void enable();
    /// No pass is made any more.
    void disable();

    /// Keeps what a block threw and ends the loop.
    void fail(std::exception_ptr failure) noexcept;

    /// What a block threw, or null.
    [[nodiscard]] std::exception_ptr failure() const noexcept { return failure_; }

  private:
    /// A ready block that has no run left before `due`.
    struct Waiting {
        std::uint64_t due;
        std::uint64_t number;  ///< those with the same time in the order in which they came
        Fenwa::Block* block;

        friend bool operator>(const Waiting& a, const Waiting& b) {
            return a.due != b.due ? a.due > b.due : a.number > b.number;
        }
    };

    void on_wake() noexcept;
    int before_waiting() noexcept;
    int on_woken_here(sd_event_source& source) noexcept;
    void wake() noexcept;
    void pass() noexcept;
    static std::uint64_t thread_processor_time();

    /// What is known of one block's runs.
    struct Account {
        TokenBucket budget;
        bool retries = false;     ///< its last run called over the bus or fired the block itself
        std::uint64_t tries = 0;  ///< such runs, one after the other
        bool spent = false;  ///< as many as the rate_limit has at once, or a run has had to wait
        std::uint64_t ran_at = 0;  ///< last
    };

    void run_ready();
    [[nodiscard]] bool are_matches_answered() const;
    void add_those_refused(std::deque<Fenwa::Block*>& ready);
    void run_retrying();
    void charge_rest();
    void run_and_watch(Fenwa::Block& block, Account& account);
    [[nodiscard]] bool holds();
    void run_within_budget(Fenwa::Block& block);
    void wait_for_next_turn();
    [[nodiscard]] std::uint64_t now() const;

    sd_event& loop_;
    RateLimit rate_limit_;
    std::function<void(Fenwa::Block&)> run_block_;
    std::thread::id thread_ = std::this_thread::get_id();
    int event_fd_;  ///< written by other threads
    Fenwa::ReadyQueue queue_;
    common::EventSourcePtr source_;
    common::EventSourcePtr next_pass_;
    bool woken_here_ = false;     ///< a block has become ready on the loop's thread
    bool woken_in_pass_ = false;  ///< ... while another ran
    unsigned rounds_ = 0;         ///< of the loop since then
    bool passing_ = false;
    common::EventSourcePtr timer_;
    std::unordered_map<const Fenwa::Block*, Account> accounts_;
    std::priority_queue<Waiting, std::vector<Waiting>, std::greater<>> waiting_;
    std::uint64_t waited_ = 0;  ///< how many have had to wait so far
    std::function<std::uint64_t()> processor_time_;
    RetryBudget retry_budget_;
    std::deque<Fenwa::Block*> retrying_;  ///< those that wait for their turn in it
    std::uint64_t retried_at_ = 0;        ///< processor time at the end of the last turns
    std::size_t retries_ = 0;             ///< runs in those turns
    std::size_t other_runs_ = 0;          ///< runs since then
    std::deque<Fenwa::Block*> fired_;     ///< those taken out of the queue for the next pass
    RefusedMatches refused_;
    std::function<std::size_t()> matches_asked_;
    bool holding_ = false;  ///< blocks are held back since the last pass
    std::function<std::size_t()> unanswered_;
    std::function<std::uint64_t()> calls_;
    Backpressure hold_;
    std::deque<Fenwa::Block*> held_;  ///< those that are ready while the bus owes answers
    std::exception_ptr failure_;
};

}  // namespace host
