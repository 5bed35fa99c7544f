#pragma once

#include <systemd/sd-event.h>

#include <string>
#include <vector>

#include "common/text/diagnostics.hpp"
#include "framework/shared/block_registry.hpp"
#include "host/graph/graph.hpp"
#include "host/plugin/loader.hpp"

namespace host {

/// Every block type that a graph can use: the host's own and those of its plug-ins.
class BlockTypes {
  public:
    /// @param loop for the blocks that need one; null when none will be started.
    explicit BlockTypes(sd_event* loop);

    /// Loads the graph's plug-ins; each mistake becomes a diagnostic.
    void load(const Graph& graph, const std::vector<std::string>& plugin_dirs,
              common::Diagnostics& diagnostics);

    /// For plug-ins one by one. This object outlives it. @param graph_file paths are seen from it.
    [[nodiscard]] PluginLoader make_loader(const std::vector<std::string>& plugin_dirs,
                                           const std::string& graph_file);
    /// A plug-in is missing: a type that is unknown may be one of its types.
    void set_incomplete() noexcept { incomplete_ = true; }

    /// Whether a block has a type that only a missing plug-in may have.
    [[nodiscard]] bool may_be_missing(const BlockEntry& entry) const;

    /// The factory of a block's type; null where there is none, with a diagnostic where no plug-in
    /// is missing.
    [[nodiscard]] const Fenwa::BlockFactory* find(const BlockEntry& entry,
                                                  common::Diagnostics& diagnostics) const;

  private:
    Fenwa::BlockRegistry registry_;
    bool incomplete_ = false;
};

}  // namespace host
