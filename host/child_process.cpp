#include "host/child_process.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <iostream>
#include <system_error>

// This release of the C library declares it without.
extern "C" {
#include <sys/pidfd.h>
}

#include "common/descriptor.hpp"

namespace host {
namespace {

using tool::Descriptor;
using Clock = std::chrono::steady_clock;

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/// In the child: what it says is nobody's business, and it ends with its parent.
void settle_in(pid_t parent) {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)  // gone before it could be told
        _exit(1);
    // A crash is expected here and is told of by its signal: no handler of the parent's, such as a
    // sanitizer's, is to come before it, and nobody looks for a core.
    for (const int crash : {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV})
        std::signal(crash, SIG_DFL);
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(nowhere, stream);
}

void write_whole(int fd, const std::string& text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t n = write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno != EINTR)
            _exit(1);  // the parent is gone
        done += n < 0 ? 0U : static_cast<std::size_t>(n);
    }
}

/// Cuts what comes through a pipe into lines.
class LineReader {
  public:
    LineReader(int fd, const std::function<void(const std::string&)>& on_line)
        : fd_(fd), on_line_(on_line) {}

    static constexpr int most = 4096;  ///< bytes at a time

    /// Takes some of what is there. @returns false at the end of it all.
    bool read_some() {
        char buffer[most];
        const ssize_t n = read(fd_, buffer, sizeof buffer);
        if (n <= 0)
            return n < 0 && (errno == EAGAIN || errno == EINTR);
        text_.append(buffer, static_cast<std::size_t>(n));
        std::size_t begin = 0;
        for (std::size_t end = 0; (end = text_.find('\n', begin)) != std::string::npos;
             begin = end + 1)
            on_line_(text_.substr(begin, end - begin));
        text_.erase(0, begin);
        return true;
    }

  private:
    int fd_;
    const std::function<void(const std::string&)>& on_line_;
    std::string text_;
};

/// Hands lines on until the child has ended. @returns false when its time is over.
bool serve(LineReader& lines, int pipe, int child, Clock::time_point deadline) {
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0)
            return false;
        pollfd events[] = {{child, POLLIN, 0}, {pipe, POLLIN, 0}};
        constexpr std::chrono::milliseconds longest = std::chrono::hours(1);
        const int r =
            poll(events, std::size(events), static_cast<int>(std::min(left, longest).count()));
        if (r <= 0)
            continue;
        // A block may close all files, which is not yet its end.
        if (events[1].revents != 0 && !lines.read_some())
            pipe = -1;
        if (events[0].revents != 0)
            return true;
    }
}

}  // namespace

ChildEnd run_in_child(const std::function<void(const LineSender& send)>& work,
                      std::chrono::microseconds limit,
                      const std::function<void(const std::string& line)>& on_line) {
    const Clock::time_point deadline = Clock::now() + limit;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) < 0)
        fail("cannot make a pipe");
    Descriptor from_child(ends[0]);
    Descriptor to_parent(ends[1]);
    // What is buffered would be written twice otherwise.
    std::cout.flush();
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid < 0)
        fail("cannot make a process");
    if (pid == 0) {
        settle_in(parent);
        work([&](const std::string& line) { write_whole(to_parent.get(), line + '\n'); });
        _exit(0);
    }
    to_parent.close();
    setpgid(pid, pid);
    fcntl(from_child.get(), F_SETFL, O_NONBLOCK);
    const Descriptor child(pidfd_open(pid, 0));
    LineReader lines(from_child.get(), on_line);
    const bool ended = child.get() >= 0 && serve(lines, from_child.get(), child.get(), deadline);
    // Those that it started, too; its number is not given to another before it is waited for.
    kill(-pid, SIGKILL);
    kill(pid, SIGKILL);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (child.get() < 0)
        throw std::system_error(ENOSYS, std::generic_category(), "cannot watch a process");
    // No more is to come, but for what the pipe still holds.
    const int capacity = fcntl(from_child.get(), F_GETPIPE_SZ);
    for (int read = 0; read < capacity && lines.read_some(); read += LineReader::most) {
    }
    if (!ended)
        return {true, 0, 0};
    return {false, WIFSIGNALED(status) ? WTERMSIG(status) : 0,
            WIFEXITED(status) ? WEXITSTATUS(status) : 0};
}

}  // namespace host
