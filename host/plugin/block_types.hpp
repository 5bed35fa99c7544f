#pragma once

#include <systemd/sd-event.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "common/text/diagnostics.hpp"
#include "common/text/suggestion.hpp"
#include "fenwa/registry.hpp"
#include "framework/shared/block_registry.hpp"
#include "host/graph/graph.hpp"

namespace host {

/// Folders in which plug-ins are looked up by name: the given ones first, then the folder of
/// `fenwa` itself, then the installed plug-in folder.
[[nodiscard]] std::vector<std::filesystem::path> plugin_folders(
    const std::vector<std::string>& given);

/// The plug-ins in the folders in which they are looked up by name: each file name once, as the
/// look-up finds it. A plug-in is a library that names the entry point; none is loaded.
[[nodiscard]] std::vector<std::filesystem::path> plugins_in_folders(
    const std::vector<std::string>& given);

/// Registers the types that need no plug-in.
/// @param loop as for BlockTypes.
void register_built_in_types(Fenwa::IRegistry& registry, sd_event* loop);

/// A plug-in cannot be used; `what()` is the reason.
class PluginError : public std::runtime_error {
  public:
    /// Why it cannot be used.
    enum class Cause {
        mistake,   ///< it is not there, or not a plug-in
        thrown,    ///< its entry point threw
        shortage,  ///< the machine lacks memory or descriptors
    };

    explicit PluginError(const std::string& sentence, std::string help = {},
                         Cause cause = Cause::mistake, std::string thrown = {})
        : std::runtime_error(sentence),
          help_(std::move(help)),
          cause_(cause),
          thrown_(std::move(thrown)) {}

    /// "did you mean 'NAME'?", or empty.
    [[nodiscard]] const std::string& help() const noexcept { return help_; }
    [[nodiscard]] Cause cause() const noexcept { return cause_; }
    /// The text of what its entry point threw, if it did; the types that it registered before stay
    /// registered.
    [[nodiscard]] const std::string& thrown() const noexcept { return thrown_; }

  private:
    std::string help_;
    Cause cause_;
    std::string thrown_;
};

/// Loads plug-ins into a registry. They stay loaded until the process ends, because blocks,
/// factories and exceptions refer to their code.
class PluginLoader {
  public:
    /// @param base the folder to which paths of plug-ins are relative.
    PluginLoader(std::vector<std::filesystem::path> folders, std::filesystem::path base,
                 Fenwa::IRegistry& registry);

    /// The file of a plug-in. A name with a slash is a path; any other is looked up in the folders.
    /// @throws PluginError
    [[nodiscard]] std::filesystem::path find(const std::string& plugin);

    /// Finds and loads one plug-in and calls its entry point. @throws PluginError
    /// @param on_phase called before each phase, "its loading" and "its entry point", which may
    ///        never end; may be empty.
    void load(const std::string& plugin,
              const std::function<void(const char* phase)>& on_phase = {});

  private:
    [[nodiscard]] std::filesystem::path look_up(const std::string& plugin);

    /// The working folder of the program: a plug-in that is loaded may change it.
    std::filesystem::path start_;
    std::vector<std::filesystem::path> folders_;
    std::filesystem::path base_;
    Fenwa::IRegistry& registry_;
    std::optional<std::vector<std::string>> libraries_;  ///< in the folders; read for a help
    common::Suggester suggester_;
};

/// The block types that a graph can use: the host's own and those of its plug-ins.
class BlockTypes {
  public:
    /// @param loop for the blocks that need one, outlives them; null if none will be started.
    explicit BlockTypes(sd_event* loop);

    /// Loads the graph's plug-ins; each mistake becomes a diagnostic.
    /// @returns how many of the errors are no mistake of the graph: the plug-in threw, or the
    ///          machine lacks what its loading needs.
    std::size_t load(const Graph& graph, const std::vector<std::string>& plugin_dirs,
                     common::Diagnostics& diagnostics);

    /// Loads plug-ins one by one into this object, which outlives the loader.
    /// @param graph_file relative paths start at its folder.
    [[nodiscard]] PluginLoader make_loader(const std::vector<std::string>& plugin_dirs,
                                           const std::string& graph_file);
    /// A plug-in is missing: an unknown type may be one of its types.
    void set_incomplete() noexcept { incomplete_ = true; }

    /// Whether a block's type may be one of a missing plug-in.
    [[nodiscard]] bool may_be_missing(const BlockEntry& entry) const;

    /// The factory of a block's type; null for an unknown type, with a diagnostic if no plug-in is
    /// missing.
    [[nodiscard]] const Fenwa::BlockFactory* find(const BlockEntry& entry,
                                                  common::Diagnostics& diagnostics) const;

  private:
    Fenwa::BlockRegistry registry_;
    bool incomplete_ = false;
};

}  // namespace host
