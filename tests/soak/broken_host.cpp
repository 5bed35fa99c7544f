// Preloaded into the host of a soak, which has to find what it breaks, as FENWA_SOAK_BREAKS says:
// "memory" is lost, or the "changes" of temperatures.
#include <pthread.h>
#include <signal.h>
#include <systemd/sd-bus.h>

#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {

bool breaks(const char* what) {
    const char* const wanted = std::getenv("FENWA_SOAK_BREAKS");
    return wanted != nullptr && std::strcmp(wanted, what) == 0;
}

[[gnu::constructor]] void begin() {
    if (!breaks("memory"))
        return;
    std::thread([] {
        // The host's signals are for its own threads.
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
        constexpr std::size_t bytes = 16 * 1024;
        for (;;) {
            std::this_thread::sleep_for(std::chrono::milliseconds(250));
            std::memset(std::malloc(bytes), 1, bytes);
        }
    }).detach();
}

}  // namespace

extern "C" int sd_bus_message_read(sd_bus_message* message, const char* types, ...) {
    const char* const member = sd_bus_message_get_member(message);
    if (breaks("changes") && member != nullptr &&
        std::strcmp(member, "TemperatureChangeSignal") == 0)
        return -ENXIO;
    std::va_list arguments;
    va_start(arguments, types);
    const int r = sd_bus_message_readv(message, types, arguments);
    va_end(arguments);
    return r;
}
