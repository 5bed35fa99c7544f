#include "camera/process/stop_signals.hpp"

namespace camera {

std::vector<int> ending_signals() {
    std::vector<int> signals = {SIGINT, SIGTERM};
    struct sigaction hangup {};
    if (sigaction(SIGHUP, nullptr, &hangup) == 0 && hangup.sa_handler != SIG_IGN)
        signals.push_back(SIGHUP);
    return signals;
}

sigset_t set_of(const std::vector<int>& signals) noexcept {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : signals)
        sigaddset(&set, number);
    return set;
}

}  // namespace camera
