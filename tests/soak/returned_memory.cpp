// Preloaded into the host of a soak: gives freed memory back to the kernel twice a second. What the
// C library keeps of a burst would hide a leak, which fills it unseen.
#include <malloc.h>
#include <pthread.h>
#include <signal.h>

#include <chrono>
#include <thread>

namespace {

[[gnu::constructor]] void begin() {
    // The host's signals are for its own threads.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread([] {
        for (;;) {
            std::this_thread::sleep_for(std::chrono::milliseconds(500));
            malloc_trim(0);
        }
    }).detach();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace
