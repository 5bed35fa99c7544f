#include "host/plugin/block_types.hpp"

#include <dlfcn.h>
#include <fmt/core.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string_view>
#include <system_error>

#include "common/process/exit_code.hpp"
#include "host/output/activity.hpp"
#include "host/plugin/timer_block.hpp"

namespace host {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> libraries_in(const std::vector<fs::path>& folders) {
    std::vector<std::string> names;
    for (const fs::path& folder : folders) {
        std::error_code ignored;  // a missing folder has no libraries
        for (const fs::directory_entry& file : fs::directory_iterator(folder, ignored)) {
            if (file.path().extension() == ".so")
                names.push_back(file.path().filename().string());
        }
    }
    return names;
}

/// Whether the machine lacks something that the loader needs: its sentence ends with the text of
/// the errno, which it does not give otherwise.
bool reports_shortage(std::string_view sentence) {
    return std::ranges::any_of(common::shortages,
                               [&](int error) { return sentence.ends_with(std::strerror(error)); });
}

constexpr const char* entry_point = "lib_register_cpp";

/// Other libraries are not loaded to find out, as that would run their code.
bool names_entry_point(const fs::path& library) {
    std::error_code ignored;
    if (!fs::is_regular_file(library, ignored))
        return false;
    std::ifstream file(library, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    return content.find(entry_point) != std::string::npos;
}

}  // namespace

std::vector<fs::path> plugins_in_folders(const std::vector<std::string>& given) {
    const std::vector<fs::path> folders = plugin_folders(given);
    std::vector<std::string> names = libraries_in(folders);
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    std::vector<fs::path> plugins;
    std::error_code ignored;
    for (const std::string& name : names) {
        const auto folder = std::find_if(folders.begin(), folders.end(), [&](const fs::path& each) {
            return fs::exists(each / name, ignored);
        });
        if (folder != folders.end() && names_entry_point(*folder / name))
            plugins.push_back(fs::absolute(*folder / name));
    }
    return plugins;
}

std::vector<fs::path> plugin_folders(const std::vector<std::string>& given) {
    std::vector<fs::path> folders(given.begin(), given.end());
    std::error_code error;
    const fs::path self = fs::read_symlink("/proc/self/exe", error);
    if (!error) {
        folders.push_back(self.parent_path());
        folders.push_back((self.parent_path() / FENWA_PLUGIN_DIR).lexically_normal());
    }
    return folders;
}

PluginLoader::PluginLoader(std::vector<fs::path> folders, fs::path base, Fenwa::IRegistry& registry)
    : folders_(std::move(folders)), base_(std::move(base)), registry_(registry) {
    std::error_code ignored;  // a folder that was removed; relative paths lead nowhere then, too
    start_ = fs::current_path(ignored);
}

fs::path PluginLoader::find(const std::string& plugin) {
    const fs::path path = look_up(plugin);
    std::error_code ignored;
    // Opening a FIFO or a device could block for ever.
    if (!fs::is_regular_file(path, ignored))
        throw PluginError(fmt::format("the plug-in '{}' is not a regular file", plugin));
    return path;
}

fs::path PluginLoader::look_up(const std::string& plugin) {
    std::error_code ignored;
    if (plugin.find('/') != std::string::npos) {
        const fs::path path = base_ / plugin;
        if (fs::exists(start_ / path, ignored))
            return start_ / path;
        throw PluginError(fmt::format("no plug-in at '{}'", path.string()));
    }
    std::string looked_in;
    for (const fs::path& folder : folders_) {
        if (!plugin.empty() && fs::exists(start_ / folder / plugin, ignored))
            return start_ / folder / plugin;
        looked_in += (looked_in.empty() ? "" : ", ") + folder.string();
    }
    if (!libraries_)
        libraries_ = libraries_in(folders_);
    throw PluginError(fmt::format("no plug-in '{}' (looked in {})", plugin, looked_in),
                      suggester_.did_you_mean(plugin, *libraries_));
}

void PluginLoader::load(const std::string& plugin,
                        const std::function<void(const char* phase)>& on_phase) {
    const fs::path path = find(plugin);
    using Cause = PluginError::Cause;
    const auto fail = [&](const std::string& reason, Cause cause = Cause::mistake,
                          const std::string& thrown = {}) {
        throw PluginError(fmt::format("the plug-in '{}' {}", plugin, reason), {}, cause, thrown);
    };
    std::optional<Activity> activity;
    const auto enter = [&](const char* phase) {
        if (on_phase)
            on_phase(phase);
        activity.emplace("plug-in", plugin.c_str(), phase);
    };
    enter("its loading");
    // All symbols at once: a missing one shows here and not in the middle of a run.
    void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        const std::string sentence = dlerror();
        fail("does not load: " + sentence,
             reports_shortage(sentence) ? Cause::shortage : Cause::mistake);
    }
    void* const symbol = dlsym(library, entry_point);
    if (symbol == nullptr)
        fail(fmt::format("has no entry point '{}'", entry_point));
    enter("its entry point");
    int r = 0;
    try {
        r = reinterpret_cast<decltype(&lib_register_cpp)>(symbol)(&registry_);
    } catch (const std::exception& error) {
        fail(std::string("threw in its entry point: ") + error.what(), Cause::thrown, error.what());
    } catch (...) {
        const std::string something = "something that is not a std::exception";
        fail("threw in its entry point " + something, Cause::thrown, something);
    }
    if (r != 0)
        fail("cannot be used: its entry point returned " + std::to_string(r));
}

void register_built_in_types(Fenwa::IRegistry& registry, sd_event* loop) {
    registry.register_factory("Timer",
                              [loop](std::string name, const Fenwa::BlockConfiguration& config,
                                     const Fenwa::InitTools&) -> std::unique_ptr<Fenwa::Block> {
                                  return std::make_unique<TimerBlock>(std::move(name), config,
                                                                      loop);
                              });
}

BlockTypes::BlockTypes(sd_event* loop) {
    register_built_in_types(registry_, loop);
}

PluginLoader BlockTypes::make_loader(const std::vector<std::string>& plugin_dirs,
                                     const std::string& graph_file) {
    return PluginLoader(plugin_folders(plugin_dirs),
                        std::filesystem::path(graph_file).parent_path(), registry_);
}

std::size_t BlockTypes::load(const Graph& graph, const std::vector<std::string>& plugin_dirs,
                             common::Diagnostics& diagnostics) {
    PluginLoader loader = make_loader(plugin_dirs, diagnostics.file());
    std::size_t not_mistakes = 0;
    for (const auto& [plugin, location] : graph.plugins) {
        try {
            loader.load(plugin);
        } catch (const PluginError& error) {
            set_incomplete();
            diagnostics.error(location, error.what(), error.help());
            not_mistakes += error.cause() == PluginError::Cause::mistake ? 0U : 1U;
        }
    }
    return not_mistakes;
}

bool BlockTypes::may_be_missing(const BlockEntry& entry) const {
    return incomplete_ && entry.type.location.line != 0 &&
           registry_.find(entry.type.value) == nullptr;
}

const Fenwa::BlockFactory* BlockTypes::find(const BlockEntry& entry,
                                            common::Diagnostics& diagnostics) const {
    const Fenwa::BlockFactory* const factory = registry_.find(entry.type.value);
    if (factory == nullptr && entry.type.location.line != 0 && !incomplete_) {
        diagnostics.error(entry.type.location,
                          fmt::format("unknown block type '{}'", entry.type.value),
                          diagnostics.did_you_mean(entry.type.value, registry_.type_names()));
    }
    return factory;
}

}  // namespace host
