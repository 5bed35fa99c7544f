#include "host/graph/block_json.hpp"

#include <nlohmann/json.hpp>

#include "framework/shared/host_access.hpp"
#include "host/value/port_value.hpp"

namespace host {
namespace {

using common::Json;
using Fenwa::HostAccess;

Json value_of(const Fenwa::InPortInternal& port) {
    const void* const source = HostAccess::source(port);
    return to_json(source == nullptr ? default_value(port.datatype())
                                     : value_at(port.datatype(), source));
}

}  // namespace

Json ports_to_json(const ConnectableBlock& block) {
    Json inputs = Json::array();
    for (const Fenwa::InPortInternal* port : HostAccess::inports(*block.block))
        inputs.push_back({{"name", port->name()},
                          {"type", type_name(port->datatype())},
                          {"triggers", port->triggers()},
                          {"value", value_of(*port)}});
    Json terminated = Json::array();
    for (const std::string& name : block.terminations->names()) {
        const Fenwa::InPortInternal& port = *block.terminations->find(name);
        terminated.push_back(
            {{"name", name}, {"type", type_name(port.datatype())}, {"value", value_of(port)}});
    }
    Json outputs = Json::array();
    for (const Fenwa::OutPortInternal* port : HostAccess::outports(*block.block))
        outputs.push_back(
            {{"name", port->name()},
             {"type", type_name(port->datatype())},
             {"value", to_json(value_at(port->datatype(), HostAccess::value_address(*port)))}});
    Json exports = Json::array();
    for (const auto& [path, interface] : HostAccess::exported_objects(*block.block))
        exports.push_back({{"path", path}, {"interface", interface}});
    return {{"inputs", std::move(inputs)},
            {"terminated_inputs", std::move(terminated)},
            {"outputs", std::move(outputs)},
            {"exports", std::move(exports)}};
}

Json to_json(const BlockEntry& entry, const ConnectableBlock& block,
             const Fenwa::BlockConfiguration& settings) {
    Json description = {
        {"name", entry.name}, {"type", entry.type.value}, {"settings", to_json(settings)}};
    if (block.block != nullptr)
        description.update(ports_to_json(block));
    return description;
}

Json to_json(const std::vector<Connection>& connections) {
    Json list = Json::array();
    for (const Connection& connection : connections)
        list.push_back({{"from", connection.from.text()}, {"to", connection.to.text()}});
    return list;
}

}  // namespace host
