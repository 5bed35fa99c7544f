#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "common/process/exit_code.hpp"

namespace common {

/// Gives a program what both have in common: the form of its help, `--help`, `--version` and that
/// a command is required. Before the commands are added, which take over form and `--help`; each
/// gets `--version` from `add_version`.
/// @param version what `--version` prints, "PROGRAM 1.2.3"; `footer` stands below every help.
void prepare_program(CLI::App& app, const std::string& version, const std::string& footer);

/// `--version` of a program or one of its commands.
void add_version(CLI::App& app, const std::string& version);

/// For an option with a number: decimal and nothing else, where CLI11 would take "0x10" and "010"
/// as well. The first takes what a std::int64_t holds.
extern const CLI::Validator whole_number;
extern const CLI::Validator decimal_number;

/// Parses the command line with `app` and then calls `command`, which runs what was asked for.
/// SIGPIPE is ignored from here on. Help and version go to stdout with exit code 0. A wrong command
/// line is one line on stderr
/// ("PROGRAM: SENTENCE"), with the nearest command or option where one is unknown, and exit code 2.
/// An option with nothing behind its '=' is wrong: CLI11 would take the next argument. A
/// `Failure` out of `command` is printed in the same form and gives its own code; any other
/// exception gives 70. Done is 69 where stdout or stderr took nothing more
/// (common/events/print_text.hpp).
[[nodiscard]] int run_command_line(CLI::App& app, int argc, char** argv,
                                   const std::function<ExitCode()>& command);

}  // namespace common
