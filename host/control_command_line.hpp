#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "common/exit_code.hpp"
#include "host/watch_command.hpp"

namespace host {

/// Makes the value of `fenwa run --control[=NAME]` the bus name to own; refuses what is none.
extern const CLI::Validator control_flag;

/// The commands that talk to a running host: `read`, `write` and `watch`.
class ControlCommands {
  public:
    /// Adds them to the program; this object outlives its parsing.
    /// @param version what `--version` prints.
    ControlCommands(CLI::App& app, const std::string& version);
    ControlCommands(const ControlCommands&) = delete;
    ControlCommands& operator=(const ControlCommands&) = delete;

    /// Runs the one that was given; nothing where it was another command.
    [[nodiscard]] std::optional<tool::ExitCode> run();

  private:
    CLI::App& add(CLI::App& app, const std::string& version, const char* name,
                  const char* description);

    WatchOptions options_;
    std::string port_;
    std::string value_;
    std::string format_ = "text";
    std::string color_ = "auto";
    CLI::App* read_;
    CLI::App* write_;
    CLI::App* watch_;
};

}  // namespace host
