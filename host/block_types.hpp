#pragma once

#include <systemd/sd-event.h>

#include <string>
#include <vector>

#include "common/diagnostics.hpp"
#include "framework/shared/block_registry.hpp"
#include "host/graph.hpp"

namespace host {

/// Every block type that a graph can use: the host's own and those of its plug-ins.
class BlockTypes {
  public:
    /// @param loop for the blocks that need one; null when none will be started.
    explicit BlockTypes(sd_event* loop);

    /// Loads the graph's plug-ins; each mistake becomes a diagnostic.
    /// @returns false when an entry point threw.
    bool load(const Graph& graph, const std::vector<std::string>& plugin_dirs,
              tool::Diagnostics& diagnostics);

    /// The factory of a block's type; null, with a diagnostic, where there is none.
    [[nodiscard]] const Fenwa::BlockFactory* find(const BlockEntry& entry,
                                                  tool::Diagnostics& diagnostics) const;

  private:
    Fenwa::BlockRegistry registry_;
};

}  // namespace host
