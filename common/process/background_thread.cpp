#include "common/process/background_thread.hpp"

#include <csignal>
#include <thread>
#include <utility>

namespace common {
namespace {

/// Blocks all signals on the calling thread, for the threads that it starts meanwhile.
class BlockedSignals {
  public:
    BlockedSignals() noexcept {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

  private:
    sigset_t before_;
};

}  // namespace

void start_background_thread(std::function<void()> body) {
    const BlockedSignals blocked;
    std::thread(std::move(body)).detach();
}

}  // namespace common
