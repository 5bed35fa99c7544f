#include "framework/shared/log_mute.hpp"

#include <atomic>

namespace Fenwa {
namespace {

thread_local LogMute* innermost = nullptr;
std::atomic<bool> whole_process = false;

}  // namespace

LogMute::LogMute() : outer_(innermost) {
    innermost = this;
}

LogMute::~LogMute() {
    innermost = outer_;
}

LogMute* LogMute::of_this_thread() noexcept {
    return innermost;
}

void LogMute::mute_process() noexcept {
    whole_process.store(true);
}

bool LogMute::is_process_muted() noexcept {
    return whole_process.load(std::memory_order_relaxed);
}

}  // namespace Fenwa
