#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "common/text/diagnostics.hpp"
#include "host/check/probe.hpp"
#include "host/control/bus_setting.hpp"
#include "host/plugin/block_types.hpp"
#include "host/runtime/running_graph.hpp"

namespace host {

/// Gives the blocks of a running graph new settings, from its file and from clients. Each block to
/// be reconfigured is probed first, in a child process, so that a mistake changes nothing and no
/// crash reaches the host. A block that throws something other than a ConfigurationError in
/// `reconfigure` ends the host, like one that throws in `run`. Thread of the loop.
class Reconfigurer {
  public:
    /// All references outlive this object. @param path of the graph file.
    Reconfigurer(std::string path, RunningGraph& graph, BlockTypes& types);

    /// Reads the file again and reconfigures the blocks whose settings in it differ from those that
    /// they have now, a client's changes included. The file's rate limit applies from here on. A
    /// file that cannot be read, has mistakes, or differs in more than settings changes nothing.
    /// Reports the result on stderr.
    void reload(bool color) noexcept;

    /// Merges changes into the settings of one block.
    /// @throws ControlError if there is no such block, it does not read such a key, or it refuses a
    ///         value; then nothing has changed. ControlError also if it threw.
    void change(const std::string& block, const SettingList& changes);

  private:
    /// The complete settings of a block.
    struct CompleteBlock {
        Fenwa::BlockConfiguration configuration;
        std::vector<UnreadKey> unread;
    };
    using Complete = std::map<std::string, CompleteBlock>;
    /// Probes blocks with their new settings. A block with a mistake, which is an error in
    /// `diagnostics`, is not in the result.
    /// @throws std::system_error if no process can be made.
    [[nodiscard]] Complete complete(const std::vector<const BlockEntry*>& entries,
                                    common::Diagnostics& diagnostics) const;
    /// @returns what has new settings, for a sentence; nothing if the file has mistakes.
    /// @throws common::Failure if the file cannot be read; as `RunningGraph::reconfigure`.
    std::optional<std::vector<std::string>> reload_from(common::Diagnostics& diagnostics);

    std::string path_;
    RunningGraph& graph_;
    BlockTypes& types_;
};

}  // namespace host
