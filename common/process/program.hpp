#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace common {

/// A program to be started, in a process group of its own and with nothing on its standard input.
struct Program {
    std::vector<std::string> command;      ///< looked up in PATH, with its arguments
    std::vector<std::string> environment;  ///< all of it, "NAME=VALUE"
    int death_signal;      ///< from the kernel, when the thread that has started it ends
    int error_output = 2;  ///< the descriptor that it has as its standard error
    int kept = -1;         ///< one more descriptor that it gets, under the same number
};

/// This process's environment without NOTIFY_SOCKET: a service manager waits for us to be ready,
/// and not for what we start.
[[nodiscard]] std::vector<std::string> inherited_environment();

/// Starts a program, with all signals at their defaults and none blocked, and waits until it runs.
/// @returns its process, which the caller has to wait for.
/// @throws std::system_error when it cannot be started; its code says why.
[[nodiscard]] pid_t start_program(const Program& program);

}  // namespace common
