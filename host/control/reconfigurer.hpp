#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "common/text/diagnostics.hpp"
#include "host/check/key_recorder.hpp"
#include "host/control/bus_setting.hpp"
#include "host/plugin/block_types.hpp"
#include "host/runtime/running_graph.hpp"

namespace host {

/// Gives the blocks of a running graph new settings, from its file and from clients. Everything is
/// checked before the first block is told, by building each block that would be told dry, in a
/// child process, so that nothing is changed half and no crash reaches the host. A block that
/// throws anything but a ConfigurationError when it is told ends the host, as one that throws in
/// `run` does. Thread of the loop.
class Reconfigurer {
  public:
    /// All outlive this object. @param path of the graph file.
    Reconfigurer(std::string path, RunningGraph& graph, BlockTypes& types);

    /// Reads the file again and tells the blocks whose settings in it differ from those that they
    /// have now, a client's changes included. The file's pace holds from here on. A file that
    /// cannot be read or does not check, or that differs in more than settings, changes nothing.
    /// Says on stderr what came of it.
    void reload(bool color) noexcept;

    /// Lays changes over the settings of one block.
    /// @throws ControlError where there is no such block, it reads no such key, or it does not
    ///         take a value; then nothing has changed. ControlError also where it threw.
    void change(const std::string& block, const SettingList& changes);

  private:
    /// All that a block would run with.
    struct CompleteBlock {
        Fenwa::BlockConfiguration configuration;
        std::vector<UnreadKey> unread;
    };
    using Complete = std::map<std::string, CompleteBlock>;
    /// A mistake, also one that shows only when the block is built, is an error in `diagnostics`;
    /// such a block is not in the result.
    /// @throws std::system_error when no process can be made to build them in.
    [[nodiscard]] Complete complete(const std::vector<const BlockEntry*>& entries,
                                    common::Diagnostics& diagnostics) const;
    /// @returns what has new settings, for a sentence; nothing where the file does not check.
    /// @throws common::Failure when the file cannot be read; as `RunningGraph::reconfigure`.
    std::optional<std::vector<std::string>> reload_from(common::Diagnostics& diagnostics);

    std::string path_;
    RunningGraph& graph_;
    BlockTypes& types_;
};

}  // namespace host
