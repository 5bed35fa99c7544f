#include "framework/shared/thread_silence.hpp"

namespace Fenwa {
namespace {

thread_local ThreadSilence* innermost = nullptr;

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

}  // namespace Fenwa
