#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <unordered_set>
#include <vector>

#include "fenwa/block.hpp"
#include "host/graph/graph.hpp"

namespace host {

// The brakes of the scheduler. Times are microseconds of any clock that never goes back.

/// The runs that one block has left: a token bucket that is full at first.
class TokenBucket {
  public:
    /// @param rate_limit one that is enabled.
    /// @param now not later than the first run.
    TokenBucket(const RateLimit& rate_limit, std::uint64_t now) noexcept;

    /// Spends one run. @returns whether there was one.
    bool take(std::uint64_t now) noexcept;

    /// When `take` succeeds again, after it has failed; UINT64_MAX if that is beyond all clocks.
    [[nodiscard]] std::uint64_t due() const noexcept;

  private:
    double burst_;
    double per_microsecond_;
    double left_;            ///< runs
    std::uint64_t counted_;  ///< time of `left_`
};

/// The processor time that all blocks together may take which retry and have spent their own
/// budgets: a token bucket. Processor time is in nanoseconds.
class RetryBudget {
  public:
    /// The share of one core.
    static constexpr double share = 0.02;
    /// The most that is saved up.
    static constexpr double burst = 5e6;
    /// The least that must be saved up for a run after the budget was spent, so that one wake-up
    /// serves several runs.
    static constexpr double portion = 0.25e6;

    /// Whether a run is allowed now.
    [[nodiscard]] bool allows(std::uint64_t now) noexcept;

    /// Spends this much, which may be more than is left.
    void charge(double nanoseconds) noexcept;

    /// When `allows` returns true again, after it has returned false.
    [[nodiscard]] std::uint64_t due() const noexcept;

  private:
    double left_ = burst;
    bool spent_ = false;
    std::uint64_t counted_ = 0;  ///< time of `left_`
};

/// Holds blocks back while the bus owes them many replies: a bus daemon allows each connection a
/// limited number of unanswered calls (128 by default) and refuses a further one, after which some
/// blocks stay silent. If no reply comes for a while the blocks go on, so that a service that never
/// replies stops nobody.
class Backpressure {
  public:
    /// The most unanswered calls with which blocks still run; a run may make several.
    static constexpr std::size_t high_watermark = 96;
    /// The longest wait for the next reply.
    static constexpr std::uint64_t reply_timeout = 250'000;

    /// @returns whether blocks have to wait now.
    bool should_wait(std::size_t unanswered, std::uint64_t now) noexcept;

    /// The result of the last `should_wait`.
    [[nodiscard]] bool is_waiting() const noexcept { return state_ == State::waiting; }

    /// A reply has come.
    void answered(std::uint64_t now) noexcept { last_ = now; }

    /// When to call `should_wait` again if no reply comes, after it has returned true.
    [[nodiscard]] std::uint64_t due() const noexcept { return last_ + reply_timeout; }

  private:
    enum class State {
        open,     ///< fewer calls than the high watermark
        waiting,  ///< for replies
        given_up  ///< none came; blocks run until there are fewer calls than the watermark again
    };

    State state_ = State::open;
    std::uint64_t last_ = 0;  ///< when the last reply came, or the wait began
};

/// The blocks whose match is refused again and again. Each further try may keep a little memory for
/// as long as the block lives, because a refused match cannot be released while another block has
/// an equal one; so all these blocks together try once in a while. After a success the next block
/// tries at once.
class RefusedMatches {
  public:
    /// The time between two tries.
    static constexpr std::uint64_t interval = 5'000'000;

    /// From here on the block's runs wait.
    void add(Fenwa::Block& block) { blocks_.insert(&block); }
    /// A match of the block is installed: if the block was the last to try, the next one may.
    void installed(Fenwa::Block& block);
    /// The block's runs do not wait any more. @returns whether one waited, which the caller makes.
    bool remove(Fenwa::Block& block);
    /// The same for a block that is about to be destroyed.
    bool forget(Fenwa::Block& block);
    void clear();

    /// Whether the block's runs have to wait.
    [[nodiscard]] bool should_wait(Fenwa::Block& block) const { return blocks_.count(&block) > 0; }
    /// Queues a ready block, which is not in the queue, for its turn.
    void wait(Fenwa::Block& block) { waiting_.push_back(&block); }
    [[nodiscard]] bool is_anyone_waiting() const noexcept { return !waiting_.empty(); }

    /// The block whose turn it is, which does not wait any more; null before `due`.
    Fenwa::Block* take(std::uint64_t now);
    /// All queued blocks, in their order.
    std::vector<Fenwa::Block*> take_all();
    /// When the next turn is.
    [[nodiscard]] std::uint64_t due() const noexcept { return due_; }

  private:
    std::unordered_set<Fenwa::Block*> blocks_;
    std::deque<Fenwa::Block*> waiting_;
    Fenwa::Block* trying_ = nullptr;  ///< the last that had a turn
    std::uint64_t due_ = 0;
};

}  // namespace host
