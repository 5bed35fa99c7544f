#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "common/text/diagnostics.hpp"
#include "common/text/json.hpp"
#include "host/check/probe.hpp"
#include "host/graph/connections.hpp"
#include "host/graph/graph.hpp"
#include "host/plugin/block_types.hpp"

namespace host {

/// What is wanted to be known of a block that was built dry; called in the child.
using BlockLook = std::function<common::Json(const Probe& block)>;

/// Blocks that are to be built dry, in a child process.
struct ProbeJob {
    BlockTypes& types;                      ///< those that are there already
    std::vector<PlacedName> plugins;        ///< loaded in the child, before the blocks
    std::vector<std::string> plugin_dirs;   ///< further folders of theirs
    std::vector<const BlockEntry*> blocks;  ///< outlive the probe
    Strictness strictness = Strictness::alone;
    BlockLook look = {};  ///< called for each block that was built; may be empty
    /// How long a plug-in may take to load, and a block for its constructor and for its setup.
    std::chrono::microseconds limit = std::chrono::seconds(5);
};

/// What was seen of one block.
struct BlockReport {
    BlockPorts ports;
    std::vector<std::pair<std::string, std::string>>
        exports;        ///< path and interface of each object
    common::Json look;  ///< null where the block was not built, and without a look
};

/// What was seen of all blocks, beyond the diagnostics.
struct ProbeResult {
    std::map<std::string, BlockReport> blocks;  ///< every one of the job, by name
    /// Plug-ins and blocks that threw something other than a ConfigurationError, crashed, hung or
    /// ended the process; each is an error.
    std::size_t throws = 0;
};

/// Loads plug-ins and builds blocks on a bus that is not there, in a child process, so that nothing
/// that they do reaches this one. Each mistake is a diagnostic at its place. A plug-in or a block
/// that crashes, hangs or ends the process is one too, and the next child goes on without it; when
/// too many did, the rest is not probed, and that is an error.
/// @throws std::system_error when no process can be made.
[[nodiscard]] ProbeResult probe(const ProbeJob& job, common::Diagnostics& diagnostics);

}  // namespace host
