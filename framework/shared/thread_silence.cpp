#include "framework/shared/thread_silence.hpp"

#include <atomic>

namespace Fenwa {
namespace {

thread_local ThreadSilence* innermost = nullptr;
std::atomic<bool> whole_process = false;

}  // namespace

ThreadSilence::ThreadSilence() : outer_(innermost) {
    innermost = this;
}

ThreadSilence::~ThreadSilence() {
    innermost = outer_;
}

ThreadSilence* ThreadSilence::of_this_thread() noexcept {
    return innermost;
}

void ThreadSilence::of_whole_process() noexcept {
    whole_process.store(true);
}

bool ThreadSilence::is_of_whole_process() noexcept {
    return whole_process.load(std::memory_order_relaxed);
}

}  // namespace Fenwa
