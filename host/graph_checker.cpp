#include "host/graph_checker.hpp"

#include <map>
#include <string>
#include <utility>

#include "framework/shared/host_access.hpp"

namespace host {
namespace {

using tool::Diagnostics;

/// Warns of objects that the bus connection will take from one block only.
void check_exports(const Graph& graph, const BlocksByName& blocks, Diagnostics& diagnostics) {
    std::map<std::pair<std::string, std::string>, std::string> exporters;
    for (const BlockEntry& entry : graph.blocks) {
        const auto found = blocks.find(entry.name);
        if (found == blocks.end() || found->second.block == nullptr)
            continue;
        for (const auto& object : Fenwa::HostAccess::exported_objects(*found->second.block)) {
            const auto& [path, interface] = object;
            const std::string what = "'" + interface + "' at '" + path + "'";
            if (sd_bus_object_path_is_valid(path.c_str()) <= 0 ||
                sd_bus_interface_name_is_valid(interface.c_str()) <= 0) {
                diagnostics.warning(entry.where, "the block '" + entry.name + "' cannot export " +
                                                     what +
                                                     ": no bus connection takes these names");
                continue;
            }
            const auto [first, is_new] = exporters.emplace(object, entry.name);
            if (!is_new && first->second == entry.name)
                diagnostics.warning(entry.where, "the block '" + entry.name + "' exports " + what +
                                                     " twice; only the first one is reached");
            else if (!is_new)
                diagnostics.warning(entry.where, "the blocks '" + first->second + "' and '" +
                                                     entry.name + "' both export " + what +
                                                     "; only the first one is reached");
        }
    }
}

}  // namespace

CheckResult check_graph(const Graph& graph, const BlockTypes& types, Diagnostics& diagnostics,
                        Strictness strictness, const BlocksLook& look) {
    const Silence silence(Silence::Scope::whole_process);
    DryConstruction dry(types, diagnostics, strictness);
    BlocksByName blocks;
    for (const BlockEntry& entry : graph.blocks)
        blocks.emplace(entry.name, dry.build(entry));
    check_exports(graph, blocks, diagnostics);
    check_connections(graph, blocks, diagnostics);
    if (look)
        look(blocks);
    return {dry.throws()};
}

}  // namespace host
