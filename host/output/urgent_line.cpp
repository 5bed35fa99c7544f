#include "host/output/urgent_line.hpp"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace host {

void write_urgently(std::string_view text) noexcept {
    if (send(STDERR_FILENO, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0 ||
        errno != ENOTSOCK)
        return;
    // A pipe that is ready takes so much as a whole.
    pollfd ready{STDERR_FILENO, POLLOUT, 0};
    if (poll(&ready, 1, 0) > 0 && (ready.revents & POLLOUT) != 0)
        static_cast<void>(!write(STDERR_FILENO, text.data(), text.size()));
}

}  // namespace host
