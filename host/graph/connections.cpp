#include "host/graph/connections.hpp"

#include <algorithm>

#include "host/value/port_value.hpp"

namespace host {
namespace {

using common::Diagnostics;
using Fenwa::PortInfo;
using Ports = std::vector<PortInfo>;

/// The block of a connection's end; null, with a diagnostic where it is due, where there is none.
const BlockPorts* find_block(const Endpoint& end, const PortsByName& blocks,
                             const std::vector<std::string>& names, Diagnostics& diagnostics) {
    if (end.block.empty())  // reported when it was read
        return nullptr;
    const auto found = blocks.find(end.block);
    if (found != blocks.end())
        return &found->second;
    diagnostics.error(end.location, "no block '" + end.block + "' in the graph",
                      diagnostics.did_you_mean(end.block, names));
    return nullptr;
}

const PortInfo* find_port(const Ports& ports, const std::string& name) {
    const auto found = std::find_if(ports.begin(), ports.end(),
                                    [&name](const PortInfo& port) { return port.name == name; });
    return found == ports.end() ? nullptr : &*found;
}

/// The port of a connection's end; null, with a diagnostic, where the block is known not to have
/// it.
/// @param ports of the kind that is wanted; @param others of the other one.
const PortInfo* find_port(const Endpoint& end, const BlockPorts& block, const Ports& ports,
                          const char* kind, const Ports& others, const char* other_kind,
                          Diagnostics& diagnostics) {
    const PortInfo* const port = find_port(ports, end.port);
    if (port != nullptr || !block.complete)
        return port;
    if (find_port(others, end.port) != nullptr) {
        diagnostics.error(end.location,
                          "'" + end.text() + "' is an " + other_kind + ", not an " + kind);
        return nullptr;
    }
    std::vector<std::string> names;
    for (const PortInfo& each : ports)
        names.push_back(each.name);
    diagnostics.error(end.location,
                      "the block '" + end.block + "' has no " + kind + " '" + end.port + "'",
                      port_help(end.port, kind, names, diagnostics.suggester()));
    return nullptr;
}

}  // namespace

Fenwa::InPortInternal* ConnectableBlock::inport(const std::string& name) const {
    Fenwa::InPortInternal* const own = block->get_inport(name);
    return own != nullptr ? own : terminations->find(name);
}

std::vector<std::string> ConnectableBlock::inport_names() const {
    std::vector<std::string> names = block->get_inport_names();
    const std::vector<std::string> provided = terminations->names();
    names.insert(names.end(), provided.begin(), provided.end());
    return names;
}

BlockPorts ports_of(const ConnectableBlock& block) {
    BlockPorts ports{block.block->get_inports_info(), block.block->get_outports_info(), true};
    for (const std::string& name : block.terminations->names())
        ports.inputs.push_back({name, block.terminations->find(name)->datatype()});
    return ports;
}

std::string port_help(const std::string& typed, const char* kind,
                      const std::vector<std::string>& names, common::Suggester& suggester) {
    std::string help = suggester.did_you_mean(typed, names);
    if (help.empty()) {
        help = names.empty() ? "it has no " + std::string(kind) + "s" : "it has: ";
        for (const std::string& name : names)
            help += (&name == &names.front() ? "'" : ", '") + name + "'";
    }
    return help;
}

void check_connections(const Graph& graph, const PortsByName& blocks, Diagnostics& diagnostics) {
    std::map<std::string, SourceLocation> connected;
    std::vector<std::string> names;
    for (const auto& [name, ports] : blocks)
        names.push_back(name);
    for (const auto& [from, to] : graph.connections) {
        const BlockPorts* const source = find_block(from, blocks, names, diagnostics);
        const BlockPorts* const target = find_block(to, blocks, names, diagnostics);
        const auto [first, is_new] = connected.emplace(to.text(), to.location);
        if (!is_new && !to.block.empty())
            diagnostics.error(to.location, "'" + to.text() + "' is connected already, at " +
                                               diagnostics.locate(first->second));
        const PortInfo* const out = source == nullptr
                                        ? nullptr
                                        : find_port(from, *source, source->outputs, "output",
                                                    source->inputs, "input", diagnostics);
        const PortInfo* const in = target == nullptr
                                       ? nullptr
                                       : find_port(to, *target, target->inputs, "input",
                                                   target->outputs, "output", diagnostics);
        if (out != nullptr && in != nullptr && out->datatype != in->datatype)
            diagnostics.error(to.location, "'" + to.text() + "' takes " + type_name(in->datatype) +
                                               ", but '" + from.text() + "' gives " +
                                               type_name(out->datatype));
    }
}

}  // namespace host
