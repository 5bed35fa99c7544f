#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/process/exit_code.hpp"
#include "common/text/terminal.hpp"
#include "host/control/client.hpp"
#include "host/output/event_writer.hpp"

namespace host {

/// What `--version` prints.
extern const char* const program_version;

/// One command of `fenwa` as it stands on the command line. What was typed is kept by `run`.
struct Command {
    CLI::App* app;                          ///< its options; `app->parsed()` once it was given
    std::function<common::ExitCode()> run;  ///< does what was asked for; throws common::Failure
};

// The commands. Each adds itself with its options to the program, which outlives it.
[[nodiscard]] Command add_run_command(CLI::App& program);
[[nodiscard]] Command add_check_command(CLI::App& program);
[[nodiscard]] Command add_graph_command(CLI::App& program);
[[nodiscard]] Command add_inspect_command(CLI::App& program);
[[nodiscard]] Command add_read_command(CLI::App& program);
[[nodiscard]] Command add_write_command(CLI::App& program);
[[nodiscard]] Command add_set_command(CLI::App& program);
[[nodiscard]] Command add_watch_command(CLI::App& program);
/// What shell completion asks; no command for people, so it is in no help.
[[nodiscard]] Command add_names_command(CLI::App& program);

// What several commands have in common. The places given outlive the parsing.

/// A new command that answers `--version` as the program does.
CLI::App& add_command(CLI::App& program, const char* name, const char* description);
/// The argument GRAPH.
void add_graph(CLI::App& command, std::string& graph);
/// `--plugin-dir DIR`, any number of times.
void add_plugin_dirs(CLI::App& command, std::vector<std::string>& plugin_dirs);
/// `--color=auto|always|never`.
void add_color(CLI::App& command, common::ColorChoice& color);
/// `--format text|json`. @param what it is the format of, for the help.
void add_format(CLI::App& command, EventFormat& format, const char* what = "event lines");
/// An option whose value is a time in seconds.
CLI::Option& add_seconds(CLI::App& command, const char* name,
                         std::function<void(std::chrono::microseconds)> take,
                         const char* description);
/// `--bus` and `--control`: which running host is meant.
void add_target(CLI::App& command, ControlTarget& target);

/// `--control[=NAME]`, a flag: as an option it would take the argument behind it for its name.
/// @param name stays empty where the flag is not given.
CLI::Option& add_control_flag(CLI::App& command, std::optional<std::string>& name,
                              const char* description);

/// Says what is wrong with a name that is to be owned on the bus; empty where nothing is.
[[nodiscard]] std::string check_bus_name(const std::string& name);

}  // namespace host
