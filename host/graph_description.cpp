#include "host/graph_description.hpp"

#include "framework/shared/host_access.hpp"
#include "host/block_description.hpp"
#include "host/port_value.hpp"

namespace host {
namespace {

using Fenwa::HostAccess;
using tool::Json;

Json describe_block(const RunningGraph& graph, const BlockEntry& entry) {
    const ConnectableBlock found = graph.block(entry.name);
    Json description = {{"name", entry.name},
                        {"type", entry.type.text},
                        {"settings", to_json(graph.settings(entry.name))}};
    description.update(describe_ports(found));
    return description;
}

}  // namespace

Json describe(const RunningGraph& graph) {
    Json blocks = Json::array();
    for (const BlockEntry& entry : graph.graph().blocks)
        blocks.push_back(describe_block(graph, entry));
    Json connections = Json::array();
    for (const Connection& connection : graph.graph().connections)
        connections.push_back({{"from", connection.from.text()}, {"to", connection.to.text()}});
    return {{"blocks", std::move(blocks)}, {"connections", std::move(connections)}};
}

}  // namespace host
