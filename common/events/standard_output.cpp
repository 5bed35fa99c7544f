#include "common/events/standard_output.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "common/events/message.hpp"

namespace common {

void open_closed_streams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        // open() takes the lowest free number, which is this one as all below it are open.
        if (fcntl(stream, F_GETFD) < 0)
            static_cast<void>(open("/dev/null", O_RDWR));
    }
}

bool has_reader(int fd) noexcept {
    struct stat status {};
    return fstat(fd, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode));
}

void StandardOutput::write(std::string_view text) {
    if (error_ != 0)
        return;
    errno = 0;
    // Past the stream, whose checks before and after each output take longer than a line.
    std::streambuf& buffer = *stream_.rdbuf();
    const auto size = static_cast<std::streamsize>(text.size());
    if (buffer.sputn(text.data(), size) != size || buffer.pubsync() != 0)
        fail(errno != 0 ? errno : EIO);
}

void StandardOutput::fail(int error) noexcept {
    int none = 0;
    if (error_.compare_exchange_strong(none, error))
        on_failure_();
}

ExitCode code_after(const StandardOutput& out, ExitCode code) {
    if (out.error() == 0)
        return code;
    if (out.error() == EPIPE) {
        print_message(Severity::info, "stdout was closed by its reader");
        return code;
    }
    print_message(Severity::error,
                  std::string("cannot write to stdout: ") + std::strerror(out.error()));
    return code == ExitCode::done ? ExitCode::unavailable : code;
}

}  // namespace common
