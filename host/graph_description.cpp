#include "host/graph_description.hpp"

#include "framework/shared/host_access.hpp"
#include "host/port_value.hpp"

namespace host {
namespace {

using Fenwa::HostAccess;
using tool::Json;

Json describe_block(const RunningGraph& graph, const BlockEntry& entry) {
    const ConnectableBlock found = graph.block(entry.name);
    const auto value_of_input = [&](const std::string& name) {
        return to_json(graph.input_value(entry.name, name).value());
    };
    Json inputs = Json::array();
    for (const Fenwa::InPortInternal* port : HostAccess::inports(*found.block))
        inputs.push_back({{"name", port->name()},
                          {"type", type_name(port->datatype())},
                          {"triggers", port->triggers()},
                          {"value", value_of_input(port->name())}});
    Json terminated = Json::array();
    for (const std::string& name : found.terminations->names())
        terminated.push_back({{"name", name},
                              {"type", type_name(found.terminations->find(name)->datatype())},
                              {"value", value_of_input(name)}});
    Json outputs = Json::array();
    for (const Fenwa::OutPortInternal* port : HostAccess::outports(*found.block))
        outputs.push_back(
            {{"name", port->name()},
             {"type", type_name(port->datatype())},
             {"value", to_json(graph.output_value(entry.name, port->name()).value())}});
    return {{"name", entry.name},
            {"type", entry.type.text},
            {"settings", to_json(graph.settings(entry.name))},
            {"inputs", std::move(inputs)},
            {"terminated_inputs", std::move(terminated)},
            {"outputs", std::move(outputs)}};
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
