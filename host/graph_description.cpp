#include "host/graph_description.hpp"

#include "host/block_description.hpp"

namespace host {

using tool::Json;

Json describe(const RunningGraph& graph) {
    Json blocks = Json::array();
    for (const BlockEntry& entry : graph.graph().blocks)
        blocks.push_back(
            describe_block(entry, graph.block(entry.name), graph.settings(entry.name)));
    return {{"blocks", std::move(blocks)}, {"connections", describe_connections(graph.graph())}};
}

}  // namespace host
