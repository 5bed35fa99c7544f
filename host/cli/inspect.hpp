#pragma once

#include <optional>
#include <string>

#include "common/process/exit_code.hpp"
#include "common/text/json.hpp"
#include "common/text/terminal.hpp"
#include "host/check/inspection.hpp"
#include "host/output/event_writer.hpp"

namespace host {

/// What `fenwa inspect` was asked for.
struct InspectOptions {
    InspectedPlugin plugin{{}, {}, std::chrono::seconds(5)};
    std::optional<std::string> type;  ///< all of them without one
    EventFormat format = EventFormat::text;
    common::ColorChoice color = common::ColorChoice::automatic;
};

/// Prints the block types of a plug-in on stdout, in the order in which it registers them. As JSON:
///
///     {"plugin": NAME, "file": PATH,
///      "types": [{"type": NAME,
///                 "inputs": [{"name", "type", "triggers"}, …],
///                 "outputs": [{"name", "type"}, …],
///                 "event_ports": [{"name"}, …],
///                 "terminated_inputs": [{"name", "type", "value"}, …],
///                 "exports": [{"path", "interface"}, …],
///                 "keys": [{"key", "type", "required": false, "default"} or
///                          {"key", "type", "required": true}, …],
///                 "settings": {KEY: VALUE, …},
///                 "failures": [{"kind": "threw" | "crashed" | "hung", "text"}, …]}, …]}
///
/// Ports and objects are those after the setup, keys stand in the order in which they are first
/// asked for, settings are what setup returns. Types and values stand as in event lines. What is
/// there only with some boolean keys turned over has a member "when" with them and the values that
/// they have then.
/// @returns `threw` when the entry point or a block threw, crashed or hung.
/// @throws common::Failure `unreadable` when the plug-in is not there or is none, `usage` when it
/// has
///         no such type.
[[nodiscard]] common::ExitCode inspect_plugin(const InspectOptions& options);

}  // namespace host
