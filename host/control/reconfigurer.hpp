#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "common/text/diagnostics.hpp"
#include "host/check/graph_check.hpp"
#include "host/check/probe.hpp"
#include "host/control/bus_setting.hpp"
#include "host/graph/diff.hpp"
#include "host/plugin/block_types.hpp"
#include "host/plugin/type_data.hpp"
#include "host/runtime/running_graph.hpp"

namespace host {

/// Changes a running graph: takes its file over, and gives its blocks the settings of clients. A
/// key that a block reads in `reconfigure` reaches it while it runs; for any other one it is built
/// anew. All blocks with changes are probed first, in a child process, so that a mistake changes
/// nothing and no crash reaches the host. A block that throws something other than a
/// ConfigurationError in `reconfigure`, or cannot be built again after a change that failed, ends
/// the host, like one that throws in `run`. Thread of the loop.
class Reconfigurer {
  public:
    /// All references outlive this object. @param path of the graph file, for messages.
    /// @param file the same, absolute: a block may change the working folder.
    /// @param catalog the data of the graph's block types.
    Reconfigurer(std::string path, std::filesystem::path file, RunningGraph& graph,
                 BlockTypes& types, const TypeCatalog& catalog);

    /// Reads the file again and makes the graph what it says: reconfigures, rebuilds, adds and
    /// removes blocks, and changes connections and the rate limit; a client's settings are
    /// reverted. A file that cannot be read, has mistakes, or differs in the bus or the plug-ins
    /// changes nothing. Reports the result on stderr.
    void reload(bool color) noexcept;

    /// Merges changes into the settings of one block while it runs.
    /// @throws ControlError if there is no such block, it does not read such a key, reads it only
    ///         when it is built, or refuses a value; then nothing has changed. ControlError also if
    ///         it threw.
    /// @returns warnings of settings of the block that are out of range or out of order.
    std::vector<std::string> change(const std::string& block, const SettingList& changes);

    /// Builds one block anew, with changes merged into its settings.
    /// @param changes may be empty.
    /// @throws ControlError as `change`, but for keys that it reads only when it is built; also if
    ///         the new block threw.
    /// @returns warnings as `change`.
    std::vector<std::string> rebuild(const std::string& block, const SettingList& changes);

  private:
    /// A block that was built with its new settings in a child process.
    struct TriedBlock {
        Fenwa::BlockConfiguration settings;  ///< complete
        std::set<std::string> read_when_built;
        /// Empty if it did not come back from `reconfigure`.
        std::optional<std::set<std::string>> live;
        std::vector<UnreadKey> unread;
    };

    /// The findings about blocks with changes.
    struct Trial {
        BlockReports reports;
        std::map<std::string, TriedBlock> blocks;  ///< without those that need a bus to be built

        /// The block of that name, or null.
        [[nodiscard]] const TriedBlock* find(const std::string& block) const;
    };

    /// Builds blocks without a bus. Each mistake is an error in `diagnostics`.
    /// @throws std::system_error if no process can be made.
    [[nodiscard]] Trial try_out(const std::vector<const BlockEntry*>& entries,
                                common::Diagnostics& diagnostics) const;
    /// Checks `next`, in which the blocks that were tried out are new.
    void check_next(const Graph& next, const BlockReports& tried,
                    common::Diagnostics& diagnostics) const;
    /// The first key whose new value does not reach the block while it runs; empty for none.
    /// @param tried the block with its new settings.
    [[nodiscard]] std::optional<std::string> find_fixed_key(const std::string& block,
                                                            const TriedBlock& tried) const;

    /// Warns of what cannot work with the blocks that are new, and of settings that have changed.
    void check_data(const Graph& next, const GraphDiff& diff, const Trial& trial,
                    common::Diagnostics& diagnostics) const;
    /// @returns the result for a sentence; nothing if the graph goes on as it was.
    /// @param built_again takes the blocks that were built again as they were.
    /// @throws common::Failure if the file cannot be read; as `RunningGraph::update`.
    std::optional<std::string> reload_from(common::Diagnostics& diagnostics,
                                           std::vector<std::string>& built_again);
    std::vector<std::string> set(const std::string& block, const SettingList& changes,
                                 bool is_rebuilt);

    std::string path_;
    std::filesystem::path file_;
    RunningGraph& graph_;
    BlockTypes& types_;
    const TypeCatalog& catalog_;
};

}  // namespace host
