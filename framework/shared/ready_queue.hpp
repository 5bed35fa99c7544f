#pragma once

#include <atomic>
#include <functional>
#include <vector>

#include "fenwa/api.hpp"
#include "fenwa/block.hpp"

namespace Fenwa {

/// The blocks that are ready to run, in the order in which they became ready. Filled from any
/// thread without locks, emptied by the host's thread. Holds a block at most once.
class FENWA_API ReadyQueue {
  public:
    /// @param wake called on the thread that makes the empty queue non-empty; it must neither block
    ///        nor throw.
    explicit ReadyQueue(std::function<void()> wake);
    ReadyQueue(const ReadyQueue&) = delete;
    ReadyQueue& operator=(const ReadyQueue&) = delete;

    /// Adds a block, unless the queue holds it already. A block that no host has adopted is not
    /// added: `HostAccess::adopt` reads its marks. Any thread.
    static void make_ready(Block& block) noexcept;

    /// Moves all blocks to the end of `ready`, the first one first. Host's thread.
    void take(std::vector<Block*>& ready);

    /// From here on a new fire adds the block again. Called right before a run moves its marks, so
    /// that no fire is lost. Host's thread.
    static void about_to_run(Block& block) noexcept;

    /// Whether the block has become ready since `about_to_run`. Host's thread.
    [[nodiscard]] static bool is_ready(const Block& block) noexcept;

    /// From here on no fire adds the block, which is about to be destroyed. Host's thread.
    /// @returns whether it had become ready and has not run since: the queue, or whoever emptied
    /// it,
    ///          holds it, or another thread is adding it just now.
    [[nodiscard]] static bool retire(Block& block) noexcept;

  private:
    std::function<void()> wake_;
    std::atomic<Block*> newest_{nullptr};
};

}  // namespace Fenwa
