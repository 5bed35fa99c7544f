#include "common/events/print_text.hpp"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <string>

namespace common {
namespace {

/// @returns 0, or the errno of the write that failed.
int write_whole(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(fd, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {  // a terminal that another program has left so
            pollfd ready{fd, POLLOUT, 0};
            poll(&ready, 1, -1);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

bool reader_has_gone(int fd) {
    pollfd ready{fd, POLLOUT, 0};
    return poll(&ready, 1, 0) > 0 && (ready.revents & POLLERR) != 0;
}

}  // namespace

void print_text(std::string_view text) {
    const int error = write_whole(STDOUT_FILENO, text);
    if (error != 0 && error != EPIPE && error != EBADF)
        throw Failure(ExitCode::unavailable,
                      std::string("cannot write to stdout: ") + std::strerror(error));
}

ExitCode code_after_stderr(ExitCode code) {
    const bool is_lost =
        !std::cerr.good() && fcntl(STDERR_FILENO, F_GETFD) >= 0 && !reader_has_gone(STDERR_FILENO);
    return code == ExitCode::done && is_lost ? ExitCode::unavailable : code;
}

}  // namespace common
