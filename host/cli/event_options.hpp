#pragma once

#include <memory>
#include <string>
#include <vector>

#include "common/cli/command_line.hpp"
#include "common/events/event_lines.hpp"
#include "common/events/message.hpp"
#include "common/events/standard_output.hpp"
#include "common/text/terminal.hpp"
#include "host/output/event_writer.hpp"

namespace host {

/// Which lines a command writes, and their form.
struct EventOptions {
    common::EventFormat format = common::EventFormat::text;
    common::Timestamps timestamps = common::Timestamps::relative;
    common::ColorChoice color = common::ColorChoice::automatic;
    std::vector<std::string> ports{};  ///< globs of the outputs to be written; empty for all
    std::vector<std::string>
        events{};        ///< names of the events to be written; empty for the default
    bool quiet = false;  ///< no values
    common::Severity least_severity = common::Severity::info;  ///< of log lines
};

/// `--format`, `--timestamps` and `--color`. The options outlive the command.
[[nodiscard]] std::vector<common::Option> line_options(EventOptions& options);
/// `--output`, `--events`, `--quiet` and `--log-level`.
[[nodiscard]] std::vector<common::Option> filter_options(EventOptions& options);

/// The event writer that the options ask for. By default text leaves out the ticks of timers, and
/// nothing writes values into systemd's journal.
/// @param out outlives the writer.
[[nodiscard]] std::unique_ptr<EventWriter> make_event_writer(const EventOptions& options,
                                                             common::StandardOutput& out);

}  // namespace host
