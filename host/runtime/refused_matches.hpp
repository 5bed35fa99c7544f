#pragma once

#include <cstdint>
#include <deque>
#include <unordered_set>
#include <vector>

#include "fenwa/block.hpp"

namespace host {

/// The blocks whose match is refused again and again. Each further try may keep a little memory for
/// as long as the block lives, because the refused match cannot be given up while another block has
/// an equal one; so all of them together try once in a while. When a try succeeds, the next one
/// follows at once. Times are microseconds of any clock that never goes back.
class RefusedMatches {
  public:
    /// The time between two tries.
    static constexpr std::uint64_t interval = 5'000'000;

    /// From here on the block's runs wait.
    void add(Fenwa::Block& block) { blocks_.insert(&block); }
    /// A match of the block is installed: where it has just tried, it is the next block's turn.
    void installed(Fenwa::Block& block);
    /// The block's runs do not wait any more. @returns whether one did, which is the caller's to
    /// make.
    bool remove(Fenwa::Block& block);
    void clear();

    /// Whether the block's runs are to wait.
    [[nodiscard]] bool holds(Fenwa::Block& block) const { return blocks_.count(&block) > 0; }
    /// Has the block, which is ready and stands here no more than once, wait for its turn.
    void wait(Fenwa::Block& block) { waiting_.push_back(&block); }
    [[nodiscard]] bool is_anyone_waiting() const noexcept { return !waiting_.empty(); }

    /// The block whose turn it is, which waits no more; null while it is nobody's.
    Fenwa::Block* take(std::uint64_t now);
    /// All that wait, in their order.
    std::vector<Fenwa::Block*> take_all();
    /// When it is somebody's turn.
    [[nodiscard]] std::uint64_t due() const noexcept { return due_; }

  private:
    std::unordered_set<Fenwa::Block*> blocks_;
    std::deque<Fenwa::Block*> waiting_;
    Fenwa::Block* trying_ = nullptr;  ///< that whose turn was last
    std::uint64_t due_ = 0;
};

}  // namespace host
