#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "common/process/exit_code.hpp"
#include "common/text/terminal.hpp"
#include "host/output/event_writer.hpp"

namespace host {

/// What `fenwa run` was asked for.
struct RunOptions {
    std::string graph;
    std::optional<std::string> bus;  ///< instead of the graph's own address
    std::vector<std::string> plugin_dirs;
    EventFormat format = EventFormat::text;
    std::optional<std::chrono::microseconds> duration;  ///< then stops as on SIGTERM
    std::chrono::microseconds call_timeout = std::chrono::seconds(25);
    std::optional<std::string> control;  ///< bus name of the control interface; none without it
    common::ColorChoice color = common::ColorChoice::automatic;
};

/// Runs a graph until a signal comes, its time is over, the bus is lost or a block throws.
/// @throws common::Failure
[[nodiscard]] common::ExitCode run_graph(const RunOptions& options);

}  // namespace host
