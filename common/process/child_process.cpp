#include "common/process/child_process.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>
#include <sstream>
#include <system_error>
#include <utility>

#include "common/process/descriptor.hpp"
#include "common/process/program.hpp"

namespace common {
namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/// In the child: silences it, and lets it end with its parent.
void prepare_child(pid_t parent) {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)  // it ended before the line above
        _exit(1);
    // The parent reports a crash by its signal: no inherited handler, such as a sanitizer's, may
    // change it, and no core is written.
    for (const int crash : {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV})
        std::signal(crash, SIG_DFL);
    // A parent that has a signal served elsewhere holds it back here.
    sigset_t nothing;
    sigemptyset(&nothing);
    sigprocmask(SIG_SETMASK, &nothing, nullptr);
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

/// Cuts the input of a pipe into lines.
class LineReader {
  public:
    LineReader(int fd, const LineReceiver& on_line) : fd_(fd), on_line_(on_line) {}

    static constexpr int most = 65536;  ///< bytes at a time

    /// Reads some input. @returns false at its end.
    bool read_some() {
        const ssize_t n = read(fd_, buffer_.data(), buffer_.size());
        if (n <= 0)
            return n < 0 && (errno == EAGAIN || errno == EINTR);
        std::size_t begin = 0;
        std::size_t from = text_.size();  // no line ends before it
        text_.append(buffer_.data(), static_cast<std::size_t>(n));
        for (std::size_t end = 0; (end = text_.find('\n', from)) != std::string::npos;
             begin = from = end + 1)
            anew_ = on_line_(text_.substr(begin, end - begin)) || anew_;
        text_.erase(0, begin);
        return true;
    }

    /// Whether one of the lines since the last time has given the child its time anew.
    bool take_anew() { return std::exchange(anew_, false); }

  private:
    int fd_;
    const LineReceiver& on_line_;
    std::array<char, most> buffer_;
    std::string text_;
    bool anew_ = false;
};

/// While one lives, the end of a child stays known until it is waited for. A block may have set
/// SIGCHLD to be ignored, so that the kernel forgets children at once.
class KeptChildren {
  public:
    KeptChildren() noexcept {
        struct sigaction plain {};
        plain.sa_handler = SIG_DFL;
        sigaction(SIGCHLD, &plain, &before_);
    }
    KeptChildren(const KeptChildren&) = delete;
    KeptChildren& operator=(const KeptChildren&) = delete;
    ~KeptChildren() { sigaction(SIGCHLD, &before_, nullptr); }

  private:
    struct sigaction before_ {};
};

/// Whether the child has ended; it is still to be waited for, unless a thread of a block has done
/// so for all children.
bool has_ended(pid_t child) {
    siginfo_t info{};
    const int r = waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT);
    return r == 0 ? info.si_pid == child : errno == ECHILD;
}

/// Hands lines on until the child has ended. @returns false when its time is over.
bool serve(LineReader& lines, int pipe, pid_t child, std::chrono::microseconds limit) {
    using std::chrono::milliseconds;
    Clock::time_point deadline = Clock::now() + limit;
    while (!has_ended(child)) {
        if (lines.take_anew())
            deadline = Clock::now() + limit;
        const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
        if (left.count() <= 0)
            return false;
        // As a rule the end of the pipe is the end of the child. But a block may close all files,
        // or start a process that keeps them open.
        const milliseconds longest{pipe < 0 ? 1 : 20};
        pollfd event{pipe, POLLIN, 0};
        if (poll(&event, 1, static_cast<int>(std::min(left, longest).count())) > 0 &&
            !lines.read_some())
            pipe = -1;
    }
    return true;
}

}  // namespace

ChildEnd run_in_child(const std::function<void(const LineSender& send)>& work,
                      std::chrono::microseconds limit, const LineReceiver& on_line) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) < 0)
        fail("cannot make a pipe");
    Descriptor from_child(ends[0]);
    Descriptor to_parent(ends[1]);
    // Otherwise the child would write the buffered text a second time.
    std::cout.flush();
    const KeptChildren kept;
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid < 0)
        fail("cannot make a process");
    if (pid == 0) {
        prepare_child(parent);
        try {
            work([&](const std::string& line) { write_whole(to_parent.get(), line + '\n'); });
        } catch (...) {
            _exit(1);  // the parent's objects must not be unwound here
        }
        _exit(0);
    }
    to_parent.close();
    setpgid(pid, pid);
    fcntl(from_child.get(), F_SETFL, O_NONBLOCK);
    LineReader lines(from_child.get(), on_line);
    const bool ended = serve(lines, from_child.get(), pid, limit);
    // With the processes that it started; its number stays its own until it is waited for.
    kill(-pid, SIGKILL);
    kill(pid, SIGKILL);
    const int status = wait_for(pid);
    // The pipe may still hold some lines.
    const int capacity = fcntl(from_child.get(), F_GETPIPE_SZ);
    for (int read = 0; read < capacity && lines.read_some(); read += LineReader::most) {
    }
    if (!ended)
        return {true, 0, 0};
    return {false, WIFSIGNALED(status) ? WTERMSIG(status) : 0,
            WIFEXITED(status) ? WEXITSTATUS(status) : 0};
}

std::string misbehaviour(const ChildEnd& end, const std::string& phase,
                         std::chrono::microseconds limit) {
    if (end.timed_out) {
        std::ostringstream text;
        text << "did not come back from " << phase << " within "
             << std::chrono::duration<double>(limit).count() << " s";
        return text.str();
    }
    if (end.signal == 0)
        return "ended the process in " + phase + " with exit code " + std::to_string(end.code);
    const char* const name = sigabbrev_np(end.signal);
    return "crashed in " + phase + ": " +
           (name == nullptr ? "signal " + std::to_string(end.signal) : "SIG" + std::string(name));
}

}  // namespace common
