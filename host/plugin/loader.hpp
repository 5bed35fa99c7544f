#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "common/text/suggestion.hpp"
#include "fenwa/registry.hpp"

namespace host {

/// Folders in which plug-ins are looked up by name: those of --plugin-dir first, then the one that
/// `fenwa` stands in, then the installed plug-in folder.
[[nodiscard]] std::vector<std::filesystem::path> plugin_folders(
    const std::vector<std::string>& given);

/// A plug-in that cannot be used; `what()` says why.
class PluginError : public std::runtime_error {
  public:
    explicit PluginError(const std::string& sentence, std::string help = {},
                         std::optional<std::string> thrown = {})
        : std::runtime_error(sentence), help_(std::move(help)), thrown_(std::move(thrown)) {}

    /// "did you mean 'NAME'?", or empty.
    [[nodiscard]] const std::string& help() const noexcept { return help_; }
    /// What its entry point threw, if that is what is wrong; the types that it has registered until
    /// then are there.
    [[nodiscard]] const std::optional<std::string>& thrown() const noexcept { return thrown_; }

  private:
    std::string help_;
    std::optional<std::string> thrown_;
};

/// Loads plug-ins into a registry. They stay loaded to the end of the process, because blocks,
/// factories and exceptions refer to their code.
class PluginLoader {
  public:
    /// @param base the folder from which paths of plug-ins are seen.
    PluginLoader(std::vector<std::filesystem::path> folders, std::filesystem::path base,
                 Fenwa::IRegistry& registry)
        : folders_(std::move(folders)), base_(std::move(base)), registry_(registry) {}

    /// The file of a plug-in. A name with a slash is a path; any other is looked up in the folders.
    /// @throws PluginError
    [[nodiscard]] std::filesystem::path find(const std::string& plugin);

    /// Finds and loads one plug-in and calls its entry point. @throws PluginError
    void load(const std::string& plugin);

  private:
    [[nodiscard]] std::filesystem::path look_up(const std::string& plugin);

    std::vector<std::filesystem::path> folders_;
    std::filesystem::path base_;
    Fenwa::IRegistry& registry_;
    std::optional<std::vector<std::string>> libraries_;  ///< in the folders, once one was not there
    common::Suggester suggester_;
};

}  // namespace host
