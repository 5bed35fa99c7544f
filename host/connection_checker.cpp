#include "host/connection_checker.hpp"

#include "common/suggestion.hpp"
#include "host/port_value.hpp"

namespace host {
namespace {

using tool::Diagnostics;

/// The block of a connection's end; null, with a diagnostic where it is due, for one whose ports
/// cannot be looked at.
const ConnectableBlock* find_block(const Endpoint& end, const BlocksByName& blocks,
                                   const std::vector<std::string>& names,
                                   Diagnostics& diagnostics) {
    if (end.block.empty())  // reported when it was read
        return nullptr;
    const auto found = blocks.find(end.block);
    if (found != blocks.end())
        return found->second.block == nullptr ? nullptr : &found->second;
    diagnostics.error(end.where, "no block '" + end.block + "' in the graph",
                      tool::did_you_mean(end.block, names));
    return nullptr;
}

void report_unknown_port(const Endpoint& end, const char* kind, const char* other_kind,
                         bool is_other_kind, const std::vector<std::string>& names,
                         Diagnostics& diagnostics) {
    if (is_other_kind) {
        diagnostics.error(end.where,
                          "'" + end.text() + "' is an " + other_kind + ", not an " + kind);
        return;
    }
    diagnostics.error(end.where,
                      "the block '" + end.block + "' has no " + kind + " '" + end.port + "'",
                      port_help(end.port, kind, names));
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

std::string port_help(const std::string& typed, const char* kind,
                      const std::vector<std::string>& names) {
    std::string help = tool::did_you_mean(typed, names);
    if (help.empty()) {
        help = names.empty() ? "it has no " + std::string(kind) + "s" : "it has: ";
        for (const std::string& name : names)
            help += (&name == &names.front() ? "'" : ", '") + name + "'";
    }
    return help;
}

void check_connections(const Graph& graph, const BlocksByName& blocks, Diagnostics& diagnostics) {
    std::map<std::string, Position> connected;
    std::vector<std::string> names;
    for (const auto& [name, block] : blocks)
        names.push_back(name);
    for (const Connection& connection : graph.connections) {
        const ConnectableBlock* const from =
            find_block(connection.from, blocks, names, diagnostics);
        const ConnectableBlock* const to = find_block(connection.to, blocks, names, diagnostics);
        const auto [first, is_new] = connected.emplace(connection.to.text(), connection.to.where);
        if (!is_new && !connection.to.block.empty())
            diagnostics.error(connection.to.where, "'" + connection.to.text() +
                                                       "' is connected already, at " +
                                                       diagnostics.locate(first->second));
        const Fenwa::OutPortInternal* out = nullptr;
        if (from != nullptr && (out = from->block->get_outport(connection.from.port)) == nullptr)
            report_unknown_port(connection.from, "output", "input",
                                from->inport(connection.from.port) != nullptr,
                                from->block->get_outport_names(), diagnostics);
        const Fenwa::InPortInternal* in = nullptr;
        if (to != nullptr && (in = to->inport(connection.to.port)) == nullptr)
            report_unknown_port(connection.to, "input", "output",
                                to->block->get_outport(connection.to.port) != nullptr,
                                to->inport_names(), diagnostics);
        if (out != nullptr && in != nullptr && out->datatype() != in->datatype())
            diagnostics.error(connection.to.where, "'" + connection.to.text() + "' takes " +
                                                       type_name(in->datatype()) + ", but '" +
                                                       connection.from.text() + "' gives " +
                                                       type_name(out->datatype()));
    }
}

}  // namespace host
