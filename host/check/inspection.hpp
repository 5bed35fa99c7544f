#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "common/text/json.hpp"

namespace host {

/// The plug-in to be inspected. It is loaded in child processes only, so that this one is safe from
/// it.
struct InspectedPlugin {
    std::string name;                      ///< as a graph names it
    std::vector<std::string> plugin_dirs;  ///< further folders
    std::chrono::microseconds limit;       ///< for loading it, and for building a block
    bool built_in = false;                 ///< the host's own types instead
};

/// A failure of a plug-in or one of its blocks.
struct Misbehaviour {
    enum class Kind { threw, crashed, hung };

    Kind kind;
    std::string text;  ///< "threw in its constructor: no licence"
};

/// The types that a plug-in registers.
struct PluginTypes {
    std::string file;  ///< the one that was found; empty for the host's own types
    std::vector<std::string> types;
    std::optional<Misbehaviour> misbehaviour;  ///< of its entry point
};

/// @throws common::Failure: unreadable if there is no such plug-in, or it cannot be used; software
///         if the machine lacks memory or descriptors.
[[nodiscard]] PluginTypes list_types(const InspectedPlugin& plugin);

/// Explores one type of a plug-in in child processes:
///
///     {"type": NAME,
///      "inputs": [{"name", "type", "triggers"}, …],
///      "outputs": [{"name", "type"}, …],
///      "event_ports": [{"name"}, …],
///      "terminated_inputs": [{"name", "type", "value"}, …],
///      "exports": [{"path", "interface"}, …],
///      "keys": [{"key", "type", "required": false, "default", "live"} or
///               {"key", "type", "required": true, "live"}, …],
///      "settings": {KEY: VALUE, …},
///      "failures": [{"kind": "threw" | "crashed" | "hung", "text"}, …]}
///
/// Ports and objects are those after the setup, keys are listed in the order of the first read,
/// settings are those that the setup returns; "live" is whether the block reads the key in
/// `reconfigure`, so that a change reaches it while it runs. Types and values are as in event
/// lines. An item that was seen only with boolean keys toggled has a member "when" with these keys
/// and their values.
[[nodiscard]] common::Json inspect_type(const InspectedPlugin& plugin, const std::string& type);

/// Whether a type was built and did not misbehave. It may throw with toggled booleans: the values
/// that belong to them may be missing.
[[nodiscard]] bool behaved(const common::Json& type);

}  // namespace host
