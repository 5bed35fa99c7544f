#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/text/json.hpp"
#include "fenwa/block_configuration.hpp"
#include "host/check/probe.hpp"

namespace host {

/// The plug-in to be inspected. It is loaded in child processes only, so that this one is safe from
/// it.
struct InspectedPlugin {
    std::string name;                      ///< as a graph names it
    std::vector<std::string> plugin_dirs;  ///< further folders
    std::chrono::microseconds limit;       ///< for loading it, and for building a block
};

/// A failure of a plug-in or one of its blocks.
struct Misbehaviour {
    enum class Kind { threw, crashed, hung };

    Kind kind;
    std::string text;  ///< "threw in its constructor: no licence"
};

/// The types that a plug-in registers.
struct PluginTypes {
    std::string file;  ///< the one that was found
    std::vector<std::string> types;
    std::optional<Misbehaviour> misbehaviour;  ///< of its entry point
};

/// @throws common::Failure (unreadable) if there is no such plug-in, or it cannot be used.
[[nodiscard]] PluginTypes list_types(const InspectedPlugin& plugin);

/// A read of a key by a block, in the words of event lines.
struct KeySeen {
    std::string key;
    std::string type;
    common::Json fallback;  ///< the getter's default, null for none
    common::Json found;     ///< the value of the key, null for none

    /// The default: the getter's, or one that the block has put under its settings; null for none.
    [[nodiscard]] const common::Json& default_value() const {
        return found.is_null() ? fallback : found;
    }
};

/// The findings about one block that was built, set up, reconfigured and destroyed.
struct BlockSeen {
    std::vector<KeySeen> keys;  ///< until it misbehaved; no read twice
    /// {"inputs", "outputs", "event_ports", "terminated_inputs", "exports", "settings"} as in
    /// `inspect_type`; null if the setup did not return.
    common::Json block;
    std::optional<Misbehaviour> misbehaviour;
};

/// Builds one block with these settings without a bus.
/// @param made_up for each required key that is not among them.
using TryBlock =
    std::function<BlockSeen(const Fenwa::BlockConfiguration& settings, MadeUpValue made_up)>;

/// Explores a block type by building it at most twice: with plausible values for its required keys,
/// and then, if it does not accept those, with zeros, or else with all its boolean keys toggled,
/// because other keys, ports and objects may depend on them.
/// @returns {"inputs", …} as in `inspect_type`, without the type's name.
[[nodiscard]] common::Json explore_type(const TryBlock& try_block);

/// Explores one type of a plug-in in child processes:
///
///     {"type": NAME,
///      "inputs": [{"name", "type", "triggers"}, …],
///      "outputs": [{"name", "type"}, …],
///      "event_ports": [{"name"}, …],
///      "terminated_inputs": [{"name", "type", "value"}, …],
///      "exports": [{"path", "interface"}, …],
///      "keys": [{"key", "type", "required": false, "default"} or
///               {"key", "type", "required": true}, …],
///      "settings": {KEY: VALUE, …},
///      "failures": [{"kind": "threw" | "crashed" | "hung", "text"}, …]}
///
/// Ports and objects are those after the setup, keys are listed in the order of the first read,
/// settings are those that the setup returns. Types and values are as in event lines. An item that
/// was seen only with boolean keys toggled has a member "when" with these keys and their values.
[[nodiscard]] common::Json inspect_type(const InspectedPlugin& plugin, const std::string& type);

/// Whether a type was built and did not misbehave. It may throw with toggled booleans: the values
/// that belong to them may be missing.
[[nodiscard]] bool behaved(const common::Json& type);

}  // namespace host
