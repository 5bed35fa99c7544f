#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/process/exit_code.hpp"
#include "common/text/diagnostics.hpp"
#include "common/text/json.hpp"
#include "host/check/probe.hpp"
#include "host/graph/graph.hpp"
#include "host/graph/ports.hpp"
#include "host/plugin/block_types.hpp"
#include "host/plugin/type_data.hpp"

namespace host {

/// Reports what is wanted of a block that was probed; called in the child process.
using BlockLook = std::function<common::Json(const Probe& block)>;

/// Blocks to be probed in a child process.
struct ProbeJob {
    BlockTypes& types;                          ///< those that are loaded already
    std::vector<Located<std::string>> plugins;  ///< loaded in the child, before the blocks
    std::vector<std::string> plugin_dirs;       ///< further folders with plug-ins
    std::vector<const BlockEntry*> blocks;      ///< outlive the probe
    Strictness strictness = Strictness::alone;
    BlockLook look = {};          ///< called for each block that was built; may be empty
    bool find_live_keys = false;  ///< before the look
    /// How long a plug-in may take to load, and a block for its constructor and for its setup.
    std::chrono::microseconds limit = std::chrono::seconds(5);
};

/// The findings about one block.
struct BlockReport {
    BlockPorts ports;
    std::vector<std::pair<std::string, std::string>>
        exports;              ///< path and interface of each object
    common::SharedJson look;  ///< null without a look, or if the block was not built
    /// How many of the inputs are the block's own; 0 if it was not built.
    std::size_t own_inputs = 0;
    /// The keys that the block has read, with the settings or defaults that it found.
    Fenwa::BlockConfiguration values = {};
};

using BlockReports = std::map<std::string, BlockReport>;  ///< by the blocks' names

/// The findings about all blocks, apart from the diagnostics.
struct ProbeResult {
    BlockReports blocks;  ///< each one of the job
    /// Errors that are no mistake of the graph: a plug-in or a block threw something other than a
    /// ConfigurationError, crashed, hung, ended the process, or could not be loaded because the
    /// machine lacks memory or descriptors; or the rest is not checked.
    std::size_t not_mistakes = 0;
};

/// Loads plug-ins and builds blocks without a bus, in a child process, so that this one is safe
/// from them. Each mistake is a diagnostic at its place. A plug-in or a block that crashes, hangs
/// or ends the process is a mistake too, and the next child skips it; after too many of these the
/// rest is not probed, which is an error.
/// @throws std::system_error if no process can be made.
[[nodiscard]] ProbeResult probe(const ProbeJob& job, common::Diagnostics& diagnostics);

/// Checks what the blocks of a graph are to each other: unknown ports, datatypes that differ,
/// inputs with two connections, objects that two blocks export.
/// @param blocks the findings about each block of the graph, and about no other.
void check_graph(const Graph& graph, const BlockReports& blocks, common::Diagnostics& diagnostics);

/// A checked graph; all its mistakes are in the diagnostics.
struct CheckedGraph {
    std::optional<Graph> graph;  ///< empty if the file could not be parsed
    ProbeResult probe;
    TypeCatalog types;  ///< the data files of its plug-ins
    common::ExitCode code;
};

/// Reads a graph, probes its plug-ins and blocks, checks it as `check_graph` does, and warns of
/// what does not fit the data files of its plug-ins. Mistakes in those are in
/// `diagnostics.other_file`.
/// @param look as in a ProbeJob.
/// @throws common::Failure as `common::read_toml`; std::system_error if no process can be made.
[[nodiscard]] CheckedGraph read_and_check(const std::string& path,
                                          const std::vector<std::string>& plugin_dirs,
                                          common::Diagnostics& diagnostics, Strictness strictness,
                                          const BlockLook& look = {});

}  // namespace host
