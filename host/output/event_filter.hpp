#pragma once

#include <memory>
#include <string>
#include <vector>

#include "common/events/message.hpp"
#include "host/output/event_writer.hpp"

namespace host {

/// The events that are written, besides the begin and the end of a run.
struct EventFilter {
    bool setup = true;
    bool output = true;
    bool debug = true;
    bool log = true;
    bool ticks = true;               ///< outputs of timers
    std::vector<std::string> ports;  ///< globs of "BLOCK.PORT"; empty for all outputs
    common::Severity least_severity = common::Severity::info;  ///< of log lines
};

/// A writer that hands the chosen events to another one. When the run is ready it warns of each
/// glob that no output matches, with the nearest name.
[[nodiscard]] std::unique_ptr<EventWriter> make_filter(EventFilter filter,
                                                       std::unique_ptr<EventWriter> writer);

}  // namespace host
