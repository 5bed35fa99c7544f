#include "tests/support/process.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace test {
namespace {

using Clock = std::chrono::steady_clock;

int check(int r, const char* what) {
    if (r < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return r;
}

[[noreturn]] void become(const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& environment, const int (&out)[2],
                         const int (&err)[2]) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // Whatever nohup(1) or a shell's "&" has left to the tests.
    for (const int number : {SIGHUP, SIGINT, SIGQUIT})
        std::signal(number, SIG_DFL);
    // A crash may be what a test is about; nobody looks for its core.
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    const int nothing = open("/dev/null", O_RDONLY);
    dup2(nothing, STDIN_FILENO);
    dup2(out[1], STDOUT_FILENO);
    dup2(err[1], STDERR_FILENO);
    for (const auto& [name, value] : environment) {
        if (value.empty())
            unsetenv(name.c_str());
        else
            setenv(name.c_str(), value.c_str(), 1);
    }
    become_program(arguments);
}

}  // namespace

void become_program(const std::vector<std::string>& arguments) {
    std::vector<char*> argv;
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    _exit(127);
}

Process::Process(std::vector<std::string> arguments,
                 std::map<std::string, std::string> environment) {
    int out[2];
    int err[2];
    check(pipe2(out, O_CLOEXEC), "pipe");
    check(pipe2(err, O_CLOEXEC), "pipe");
    pid_ = check(fork(), "fork");
    if (pid_ == 0)
        become(arguments, environment, out, err);
    close(out[1]);
    close(err[1]);
    streams_[0].fd = out[0];
    streams_[1].fd = err[0];
    for (const Stream& stream : streams_)
        check(fcntl(stream.fd, F_SETFL, O_NONBLOCK), "fcntl");
}

Process::~Process() {
    if (pid_ != 0) {
        kill(pid_, SIGTERM);
        const auto deadline = Clock::now() + std::chrono::seconds(5);
        while (waitpid(pid_, nullptr, WNOHANG) == 0) {
            if (Clock::now() > deadline) {
                kill(pid_, SIGKILL);
                waitpid(pid_, nullptr, 0);
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    for (const Stream& stream : streams_) {
        if (stream.fd >= 0)
            close(stream.fd);
    }
}

/// Reads what there is, waiting for something to come. @returns false at the end or deadline.
bool Process::read_more(Clock::time_point deadline) {
    pollfd polled[2];
    nfds_t count = 0;
    for (const Stream& stream : streams_) {
        if (stream.fd >= 0)
            polled[count++] = {stream.fd, POLLIN, 0};
    }
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (count == 0 || left <= 0 || poll(polled, count, static_cast<int>(left)) <= 0)
        return false;
    for (Stream& stream : streams_) {
        char buffer[65536];
        ssize_t n = 0;
        while (stream.fd >= 0 && (n = read(stream.fd, buffer, sizeof buffer)) > 0)
            stream.text.append(buffer, static_cast<std::size_t>(n));
        if (stream.fd >= 0 && n == 0) {
            close(stream.fd);
            stream.fd = -1;
        }
    }
    return true;
}

std::optional<std::string> Process::wait_in(Stream& stream,
                                            const std::function<bool(const std::string&)>& wanted) {
    const auto deadline = Clock::now() + wait_limit;
    do {
        std::size_t end = 0;
        while ((end = stream.text.find('\n', stream.looked_at)) != std::string::npos) {
            std::string line = stream.text.substr(stream.looked_at, end - stream.looked_at);
            stream.looked_at = end + 1;
            if (wanted(line))
                return line;
        }
    } while (read_more(deadline));
    return std::nullopt;
}

std::optional<std::string> Process::wait_for_line(
    const std::function<bool(const std::string&)>& wanted) {
    return wait_in(streams_[0], wanted);
}

std::optional<std::string> Process::wait_for_text(const std::string& text) {
    return wait_in(streams_[0], [&text](const std::string& line) {
        return line.find(text) != std::string::npos;
    });
}

std::optional<std::string> Process::wait_for_error_text(const std::string& text) {
    return wait_in(streams_[1], [&text](const std::string& line) {
        return line.find(text) != std::string::npos;
    });
}

bool Process::take_lines(std::chrono::milliseconds limit,
                         const std::function<void(std::string line, bool is_error)>& take) {
    static_cast<void>(read_more(Clock::now() + limit));
    bool open = false;
    for (Stream& stream : streams_) {
        std::size_t end = 0;
        while ((end = stream.text.find('\n', stream.looked_at)) != std::string::npos) {
            take(stream.text.substr(stream.looked_at, end - stream.looked_at),
                 &stream == &streams_[1]);
            stream.looked_at = end + 1;
        }
        stream.text.erase(0, stream.looked_at);
        stream.looked_at = 0;
        open = open || stream.fd >= 0;
    }
    return open;
}

void Process::send_signal(int signal) const {
    if (pid_ != 0)
        check(kill(pid_, signal), "kill");
}

Ended Process::wait(std::chrono::seconds limit) {
    const auto deadline = Clock::now() + limit;
    while (read_more(deadline)) {
    }
    int status = 0;
    while (waitpid(pid_, &status, WNOHANG) == 0) {
        if (Clock::now() > deadline)
            throw std::runtime_error("the program does not end; so far it wrote:\n" + out() +
                                     err());
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    pid_ = 0;
    Ended ended;
    if (WIFEXITED(status))
        ended.code = WEXITSTATUS(status);
    else
        ended.signal = WTERMSIG(status);
    ended.out = out();
    ended.err = err();
    return ended;
}

Ended Process::terminate() {
    send_signal(SIGTERM);
    return wait();
}

Ended run_program(std::vector<std::string> arguments,
                  std::map<std::string, std::string> environment, std::chrono::seconds limit) {
    return Process(std::move(arguments), std::move(environment)).wait(limit);
}

}  // namespace test
