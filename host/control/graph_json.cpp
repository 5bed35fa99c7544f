#include "host/control/graph_json.hpp"

#include "host/graph/block_json.hpp"

namespace host {

using common::Json;

Json describe(const RunningGraph& graph) {
    Json blocks = Json::array();
    for (const BlockEntry& entry : graph.graph().blocks) {
        Json block = describe_block(entry, graph.block(entry.name), graph.settings(entry.name));
        block["services"] = graph.services(entry.name);
        blocks.push_back(std::move(block));
    }
    return {{"blocks", std::move(blocks)}, {"connections", describe_connections(graph.graph())}};
}

}  // namespace host
