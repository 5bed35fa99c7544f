#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace common {

/// How to start a program. It gets a process group of its own.
struct ProgramStart {
    std::vector<std::string> command;      ///< looked up in PATH, with its arguments
    std::vector<std::string> environment;  ///< all of it, "NAME=VALUE"
    int death_signal;  ///< from the kernel, when the thread that has started it ends
    // The descriptors of its standard streams; -1 for /dev/null.
    int input = -1;
    int output = 1;
    int error_output = 2;
    int kept = -1;  ///< one more descriptor that it gets, under the same number
};

/// This process's environment without NOTIFY_SOCKET: a service manager waits for us to be ready,
/// and not for what we start.
[[nodiscard]] std::vector<std::string> inherited_environment();

/// Starts a program, with all signals at their defaults and none blocked, and waits until it runs.
/// @returns its process, which the caller has to wait for.
/// @throws std::system_error when it cannot be started; its code says why.
[[nodiscard]] pid_t start_program(const ProgramStart& program);

/// Waits until a child has ended. @returns its status, as waitpid() gives it.
int wait_for(pid_t child) noexcept;

/// The exit code for a status, as shells have it: 128 + N after signal N.
[[nodiscard]] int exit_code_of(int status) noexcept;

/// Ends a child: SIGTERM, and SIGKILL if it is still there after `kill_timeout`. Waits until it is
/// gone.
void end_child(pid_t child, std::chrono::milliseconds kill_timeout) noexcept;

}  // namespace common
