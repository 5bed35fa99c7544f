#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "common/exit_code.hpp"

namespace tool {

/// Parses the command line with `app` and then calls `command`, which runs what was asked for.
/// Help and version go to stdout with exit code 0. A wrong command line is one line on stderr
/// ("PROGRAM: SENTENCE"), with the nearest command where one is unknown, and exit code 2. A
/// `Failure` out of `command` is printed in the same form and gives its own code; any other
/// exception gives 70.
[[nodiscard]] int run_command_line(CLI::App& app, int argc, char** argv,
                                   const std::function<ExitCode()>& command);

}  // namespace tool
