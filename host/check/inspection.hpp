#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "common/text/json.hpp"
#include "fenwa/block_configuration.hpp"

namespace host {

/// The plug-in that is looked at. It is loaded in child processes only, so that whatever it does
/// there is seen and does no harm.
struct InspectedPlugin {
    std::string name;                      ///< as a graph names it
    std::vector<std::string> plugin_dirs;  ///< further folders
    std::chrono::microseconds limit;       ///< how long it may take to load it, or to build a block
};

/// What a plug-in or one of its blocks did that it should not.
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

/// @throws common::Failure (unreadable) when there is no such plug-in, or when it cannot be used.
[[nodiscard]] PluginTypes list_types(const InspectedPlugin& plugin);

/// One look of a block at a key, in the words of event lines.
struct KeySeen {
    std::string key;
    std::string type;
    common::Json fallback;  ///< the default that the getter was given, null for none
    common::Json found;     ///< what stood there, null for nothing
};

/// What was seen of one block that was built, set up, reconfigured and destroyed.
struct BlockSeen {
    std::vector<KeySeen> keys;  ///< until it misbehaved; no look twice
    /// {"inputs", "outputs", "event_ports", "terminated_inputs", "exports", "settings"} as in
    /// `inspect_plugin`; null when it did not come to the end of its setup.
    common::Json block;
    std::optional<Misbehaviour> misbehaviour;
};

/// Builds one block with these settings on a bus that is not there. A required key that is not
/// among them has a zero value.
[[nodiscard]] BlockSeen try_block(const InspectedPlugin& plugin, const std::string& type,
                                  const Fenwa::BlockConfiguration& settings);

}  // namespace host
