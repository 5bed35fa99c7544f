#include "common/process/background_thread.hpp"

#include <csignal>
#include <future>
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
    // A process that is copied while a thread begins keeps the locks that the thread holds just
    // then: a sanitizer's allocator does not look after them, as the C library's does.
    std::promise<void> begun;
    std::future<void> begins = begun.get_future();
    try {
        std::thread([begun = std::move(begun), body = std::move(body)]() mutable {
            begun.set_value();
            body();
        }).detach();
        begins.wait();
    } catch (const std::system_error& error) {
        throw Failure(ExitCode::software, "cannot start a thread: " + error.code().message());
    }
}

}  // namespace common
