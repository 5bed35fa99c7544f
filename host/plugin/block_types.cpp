#include "host/plugin/block_types.hpp"

#include "host/plugin/timer_block.hpp"

namespace host {

BlockTypes::BlockTypes(sd_event* loop) {
    registry_.register_factory("Timer",
                               [loop](std::string name, const Fenwa::BlockConfiguration& config,
                                      const Fenwa::InitTools&) -> std::unique_ptr<Fenwa::Block> {
                                   return std::make_unique<TimerBlock>(std::move(name), config,
                                                                       loop);
                               });
}

PluginLoader BlockTypes::make_loader(const std::vector<std::string>& plugin_dirs,
                                     const std::string& graph_file) {
    return PluginLoader(plugin_folders(plugin_dirs),
                        std::filesystem::path(graph_file).parent_path(), registry_);
}

void BlockTypes::load(const Graph& graph, const std::vector<std::string>& plugin_dirs,
                      common::Diagnostics& diagnostics) {
    PluginLoader loader = make_loader(plugin_dirs, diagnostics.file());
    for (const PlacedName& plugin : graph.plugins) {
        try {
            loader.load(plugin.text);
        } catch (const PluginError& error) {
            set_incomplete();
            diagnostics.error(plugin.location, error.what(), error.help());
        }
    }
}

bool BlockTypes::may_be_missing(const BlockEntry& entry) const {
    return incomplete_ && entry.type.location.line != 0 &&
           registry_.find(entry.type.text) == nullptr;
}

const Fenwa::BlockFactory* BlockTypes::find(const BlockEntry& entry,
                                            common::Diagnostics& diagnostics) const {
    const Fenwa::BlockFactory* const factory = registry_.find(entry.type.text);
    if (factory == nullptr && entry.type.location.line != 0 && !incomplete_) {
        diagnostics.error(entry.type.location, "unknown block type '" + entry.type.text + "'",
                          diagnostics.did_you_mean(entry.type.text, registry_.type_names()));
    }
    return factory;
}

}  // namespace host
