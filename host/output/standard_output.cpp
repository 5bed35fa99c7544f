#include "host/output/standard_output.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>

namespace host {

void open_closed_streams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        // The lowest free number is taken, which is this one as all below it are open.
        if (fcntl(stream, F_GETFD) < 0)
            static_cast<void>(open("/dev/null", O_RDWR));
    }
}

bool has_reader(int fd) noexcept {
    struct stat status {};
    return fstat(fd, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode));
}

StandardOutput::StandardOutput(std::function<void()> on_failure)
    : on_failure_(std::move(on_failure)) {
    std::signal(SIGPIPE, SIG_IGN);
}

void StandardOutput::write(const std::string& text) {
    if (error_ != 0)
        return;
    errno = 0;
    std::cout << text << std::flush;
    if (std::cout.good())
        return;
    fail(errno != 0 ? errno : EIO);
}

void StandardOutput::fail(int error) noexcept {
    int none = 0;
    if (error_.compare_exchange_strong(none, error))
        on_failure_();
}

common::ExitCode code_after(const StandardOutput& out, common::ExitCode code) {
    if (out.error() == 0)
        return code;
    if (out.error() == EPIPE) {
        std::cerr << "fenwa: stdout was closed by its reader\n";
        return code;
    }
    std::cerr << "fenwa: cannot write to stdout: " << std::strerror(out.error()) << '\n';
    return code == common::ExitCode::done ? common::ExitCode::unavailable : code;
}

}  // namespace host
