#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "common/exit_code.hpp"

namespace tool {

/// Gives a program what both have in common: the form of its help, `--help`, `--version` and that
/// a command is required. Before the commands are added, which take over form and `--help`; each
/// gets `--version` from `add_version`.
/// @param version what `--version` prints, "PROGRAM 1.2.3"; `footer` stands below every help.
void prepare_program(CLI::App& app, const std::string& version, const std::string& footer);

/// `--version` of a program or one of its commands.
void add_version(CLI::App& app, const std::string& version);

/// Parses the command line with `app` and then calls `command`, which runs what was asked for.
/// Help and version go to stdout with exit code 0. A wrong command line is one line on stderr
/// ("PROGRAM: SENTENCE"), with the nearest command where one is unknown, and exit code 2. A
/// `Failure` out of `command` is printed in the same form and gives its own code; any other
/// exception gives 70.
[[nodiscard]] int run_command_line(CLI::App& app, int argc, char** argv,
                                   const std::function<ExitCode()>& command);

}  // namespace tool
