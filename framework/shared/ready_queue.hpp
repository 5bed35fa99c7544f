#pragma once

#include <atomic>
#include <functional>
#include <vector>

#include "fenwa/api.hpp"
#include "fenwa/block.hpp"

namespace Fenwa {

/// The blocks that want to run, in the order in which they became ready. Filled from any thread
/// without locks, emptied by the host's thread. A block stands in it at most once.
class FENWA_API ReadyQueue {
  public:
    /// @param wake called by whoever makes the empty queue non-empty, on that thread: it must
    ///        neither block nor throw.
    explicit ReadyQueue(std::function<void()> wake);
    ReadyQueue(const ReadyQueue&) = delete;
    ReadyQueue& operator=(const ReadyQueue&) = delete;

    /// Puts a block in, unless it stands in already. A block that no host has taken over yet is
    /// left alone: its marks stay and are looked at when it is. Any thread.
    static void make_ready(Block& block) noexcept;

    /// Takes all out, first come first. Host's thread.
    [[nodiscard]] std::vector<Block*> take();

    /// From here on a new fire puts the block in again: called right before its marks are taken
    /// over for a run, so that nothing fired in between is lost. Host's thread.
    static void about_to_run(Block& block) noexcept;

  private:
    std::function<void()> wake_;
    std::atomic<Block*> newest_{nullptr};
};

}  // namespace Fenwa
