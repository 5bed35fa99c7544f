#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "common/diagnostics.hpp"
#include "framework/shared/block_registry.hpp"
#include "host/graph.hpp"

namespace host {

/// Folders in which plug-ins are looked up by name: those of --plugin-dir first, then the one that
/// `fenwa` stands in, then the installed plug-in folder.
[[nodiscard]] std::vector<std::filesystem::path> plugin_folders(
    const std::vector<std::string>& given);

/// Loads plug-ins into a registry. They stay loaded to the end of the process, because blocks,
/// factories and exceptions refer to their code.
class PluginLoader {
  public:
    PluginLoader(std::vector<std::filesystem::path> folders, Fenwa::BlockRegistry& registry)
        : folders_(std::move(folders)), registry_(registry) {}

    /// Finds and loads one plug-in and calls its entry point. A name with a slash is a path, seen
    /// from the folder of the graph file; any other is looked up in the folders.
    /// What goes wrong becomes a diagnostic at the plug-in's place.
    /// @returns false when the entry point threw.
    bool load(const PlacedName& plugin, tool::Diagnostics& diagnostics);

  private:
    [[nodiscard]] std::filesystem::path find(const PlacedName& plugin,
                                             tool::Diagnostics& diagnostics) const;

    std::vector<std::filesystem::path> folders_;
    Fenwa::BlockRegistry& registry_;
};

}  // namespace host
