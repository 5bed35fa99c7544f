#include "host/block_types.hpp"

#include "common/suggestion.hpp"
#include "host/plugin_loader.hpp"
#include "host/timer_block.hpp"

namespace host {

BlockTypes::BlockTypes(sd_event* loop) {
    registry_.register_factory("Timer",
                               [loop](std::string name, const Fenwa::BlockConfiguration& config,
                                      const Fenwa::InitTools&) -> std::unique_ptr<Fenwa::Block> {
                                   return std::make_unique<TimerBlock>(std::move(name), config,
                                                                       loop);
                               });
}

bool BlockTypes::load(const Graph& graph, const std::vector<std::string>& plugin_dirs,
                      tool::Diagnostics& diagnostics) {
    PluginLoader loader(plugin_folders(plugin_dirs),
                        std::filesystem::path(diagnostics.file()).parent_path(), registry_);
    bool quiet = true;
    for (const PlacedName& plugin : graph.plugins) {
        try {
            loader.load(plugin.text);
        } catch (const PluginError& error) {
            diagnostics.error(plugin.where, error.what(), error.help());
            quiet = quiet && !error.thrown();
        }
    }
    return quiet;
}

const Fenwa::BlockFactory* BlockTypes::find(const BlockEntry& entry,
                                            tool::Diagnostics& diagnostics) const {
    const Fenwa::BlockFactory* const factory = registry_.find(entry.type.text);
    if (factory == nullptr && entry.type.where.line != 0) {
        diagnostics.error(entry.type.where, "unknown block type '" + entry.type.text + "'",
                          tool::did_you_mean(entry.type.text, registry_.type_names()));
    }
    return factory;
}

}  // namespace host
