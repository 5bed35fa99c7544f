#include "common/process/program.hpp"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

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

/// No handler or blocked signal of ours is to be one of the program's. But SIGTTOU stays ignored
/// where it is: in a group of its own it is in the background of a terminal, which it may write to.
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
[[noreturn]] void become(const Program& program, char* const* arguments, char* const* environment,
                         int error_pipe, pid_t parent) {
    setpgid(0, 0);
    reset_signals();
    prctl(PR_SET_PDEATHSIG, program.death_signal);
    if (getppid() != parent)
        _exit(1);  // it ended before the line above
    const int nothing = open("/dev/null", O_RDONLY);
    if (nothing >= 0 && dup2(nothing, STDIN_FILENO) >= 0 &&
        dup2(program.error_output, STDERR_FILENO) >= 0) {
        if (nothing != STDIN_FILENO)
            close(nothing);
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

pid_t start_program(const Program& program) {
    std::array<int, 2> error_pipe{};
    if (pipe2(error_pipe.data(), O_CLOEXEC) != 0)
        fail("pipe2");
    const Descriptor error_out(error_pipe[0]);
    Descriptor error_in(error_pipe[1]);
    const std::vector<char*> arguments = pointers_to(program.command);
    const std::vector<char*> environment = pointers_to(program.environment);
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child == 0)
        become(program, arguments.data(), environment.data(), error_in.get(), parent);
    if (child < 0)
        fail("fork");
    error_in.close();
    int error = 0;
    ssize_t got = 0;
    do
        got = read(error_out.get(), &error, sizeof error);  // ends when the child has exec'd
    while (got < 0 && errno == EINTR);
    if (got != sizeof error)
        return child;
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
    throw std::system_error(error, std::generic_category(), "exec");
}

}  // namespace common
