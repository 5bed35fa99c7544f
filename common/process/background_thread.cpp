#include "common/process/background_thread.hpp"

#include <csignal>
#include <system_error>
#include <thread>
#include <utility>

#include "common/process/exit_code.hpp"

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
    try {
        std::thread(std::move(body)).detach();
    } catch (const std::system_error& error) {
        throw Failure(ExitCode::software, "cannot start a thread: " + error.code().message());
    }
}

}  // namespace common
