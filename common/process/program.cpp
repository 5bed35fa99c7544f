#include "common/process/program.hpp"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <thread>

#include "common/process/descriptor.hpp"

namespace common {
namespace {

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

std::vector<char*> pointers_to(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (const std::string& text : texts)
        pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

/// The program inherits no handler and no blocked signal. But an ignored SIGTTOU stays ignored: in
/// a group of its own the program is in the background of a terminal, which it may write to.
void reset_signals() {
    struct sigaction plain {};
    plain.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; ++number) {
        if (number != SIGTTOU)
            sigaction(number, &plain, nullptr);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

/// The child's part between fork and exec: only calls that are safe there.
[[noreturn]] void become(const ProgramStart& program, char* const* arguments,
                         char* const* environment, int error_pipe, pid_t parent) {
    setpgid(0, 0);
    reset_signals();
    prctl(PR_SET_PDEATHSIG, program.death_signal);
    if (getppid() != parent)
        _exit(1);  // it ended before the line above
    // Above the standard streams, which may be closed: a stream must not overwrite another's
    // source.
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    const int nothing = null < 0 ? null : fcntl(null, F_DUPFD_CLOEXEC, 3);
    const auto lead = [nothing](int from, int stream) {
        return from == stream || dup2(from < 0 ? nothing : from, stream) >= 0;
    };
    if (nothing >= 0 && lead(program.input, STDIN_FILENO) && lead(program.output, STDOUT_FILENO) &&
        lead(program.error_output, STDERR_FILENO)) {
        if (program.kept >= 0)
            fcntl(program.kept, F_SETFD, 0);
        execvpe(arguments[0], arguments, environment);
    }
    const int error = errno;
    (void)!write(error_pipe, &error, sizeof error);
    _exit(127);
}

}  // namespace

std::vector<std::string> inherited_environment() {
    std::vector<std::string> variables;
    for (char** variable = environ; *variable != nullptr; ++variable)
        variables.emplace_back(*variable);
    std::erase_if(variables,
                  [](const std::string& each) { return each.starts_with("NOTIFY_SOCKET="); });
    return variables;
}

pid_t start_program(const ProgramStart& program) {
    std::array<int, 2> error_pipe{};
    if (pipe2(error_pipe.data(), O_CLOEXEC) != 0)
        fail("cannot make a pipe");
    const Descriptor error_out(error_pipe[0]);
    Descriptor error_in(error_pipe[1]);
    const std::vector<char*> arguments = pointers_to(program.command);
    const std::vector<char*> environment = pointers_to(program.environment);
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child == 0)
        become(program, arguments.data(), environment.data(), error_in.get(), parent);
    if (child < 0)
        fail("cannot make a process");
    error_in.close();
    int error = 0;
    ssize_t got = 0;
    do
        got = read(error_out.get(), &error, sizeof error);  // ends when the child has exec'd
    while (got < 0 && errno == EINTR);
    if (got != sizeof error)
        return child;
    wait_for(child);
    throw std::system_error(error, std::generic_category(), "exec");
}

int wait_for(pid_t child) noexcept {
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

int exit_code_of(int status) noexcept {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void end_child(pid_t child, std::chrono::milliseconds kill_timeout) noexcept {
    kill(child, SIGTERM);
    const auto deadline = std::chrono::steady_clock::now() + kill_timeout;
    while (waitpid(child, nullptr, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() >= deadline) {
            kill(child, SIGKILL);
            wait_for(child);
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

}  // namespace common
