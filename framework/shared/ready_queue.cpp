#include "framework/shared/ready_queue.hpp"

#include <algorithm>
#include <cstddef>

#include "framework/shared/block_state.hpp"

namespace Fenwa {

ReadyQueue::ReadyQueue(std::function<void()> wake) : wake_(std::move(wake)) {}

void ReadyQueue::make_ready(Block& block) noexcept {
    Block::State& state = *block.state_;
    ReadyQueue* const queue = state.queue.load();
    if (queue == nullptr || state.queued.exchange(true))
        return;
    // A stack that the host reverses: a push needs no lock, and single entries are not popped.
    Block* newest = queue->newest_.load(std::memory_order_relaxed);
    do {
        state.next = newest;
    } while (!queue->newest_.compare_exchange_weak(newest, &block, std::memory_order_release,
                                                   std::memory_order_relaxed));
    if (newest == nullptr)
        queue->wake_();
}

void ReadyQueue::take(std::vector<Block*>& ready) {
    const auto known = static_cast<std::ptrdiff_t>(ready.size());
    for (Block* block = newest_.exchange(nullptr, std::memory_order_acquire); block != nullptr;
         block = block->state_->next)
        ready.push_back(block);
    if (static_cast<std::ptrdiff_t>(ready.size()) > known + 1)
        std::reverse(ready.begin() + known, ready.end());
}

void ReadyQueue::about_to_run(Block& block) noexcept {
    block.state_->queued.store(false);
}

bool ReadyQueue::is_ready(const Block& block) noexcept {
    return block.state_->queued.load();
}

bool ReadyQueue::retire(Block& block) noexcept {
    // As if the queue held it for good.
    return block.state_->queued.exchange(true);
}

}  // namespace Fenwa
