#include "host/control/port_access.hpp"

#include <algorithm>

#include "common/text/suggestion.hpp"
#include "host/control/names.hpp"

namespace host {
namespace {

/// A port's name with the block that it names.
struct Found {
    Endpoint end;
    ConnectableBlock block;
};

Found find_block(const RunningGraph& graph, const std::string& port) {
    const std::optional<Endpoint> end = parse_endpoint(port);
    if (!end)
        throw ControlError(unknown_port_error,
                           common::in_quotes(port) + " is not of the form BLOCK.PORT");
    const ConnectableBlock block = graph.block(end->block);
    if (block.block == nullptr)
        refuse_unknown_block(graph.graph(), end->block);
    return {*end, block};
}

[[noreturn]] void refuse_unknown(const Endpoint& end, const char* kind,
                                 const std::vector<std::string>& names) {
    common::Suggester suggester;
    throw ControlError(unknown_port_error,
                       "the block " + common::in_quotes(end.block) + " has no " + kind + " " +
                           common::in_quotes(end.port),
                       port_help(end.port, kind, names, suggester));
}

}  // namespace

void refuse_unknown_block(const Graph& graph, const std::string& block) {
    std::vector<std::string> names;
    for (const BlockEntry& entry : graph.blocks)
        names.push_back(entry.name);
    throw ControlError(unknown_block_error,
                       "no block " + common::in_quotes(block) + " in the graph",
                       common::did_you_mean(block, names));
}

PortValue read_port(const RunningGraph& graph, const std::string& port) {
    const auto [end, block] = find_block(graph, port);
    std::optional<PortValue> value = graph.input_value(end.block, end.port);
    if (!value)
        value = graph.output_value(end.block, end.port);
    if (!value) {
        std::vector<std::string> names = block.inport_names();
        for (const std::string& output : block.block->get_outport_names())
            names.push_back(output);
        refuse_unknown(end, "port", names);
    }
    if (std::holds_alternative<std::monostate>(*value))
        throw ControlError(
            wrong_type_error,
            "'" + port + "' holds a value of a datatype that the host does not know");
    return *value;
}

WritableInput find_writable(const RunningGraph& graph, const std::string& port) {
    const auto [end, block] = find_block(graph, port);
    const Fenwa::InPortInternal* const input = block.inport(end.port);
    if (input == nullptr) {
        if (block.block->get_outport(end.port) != nullptr)
            throw ControlError(unknown_port_error, "'" + port + "' is an output, not an input");
        refuse_unknown(end, "input", block.inport_names());
    }
    for (const Connection& connection : graph.graph().connections) {
        if (connection.to.block == end.block && connection.to.port == end.port)
            throw ControlError(connected_input_error,
                               "'" + port + "' is connected to '" + connection.from.text() + "'");
    }
    const Fenwa::Datatype& datatype = input->datatype();
    const PortValue first = default_value(datatype);
    if (std::holds_alternative<std::monostate>(first) ||
        std::holds_alternative<Fenwa::datatype_timersource>(first))
        throw ControlError(wrong_type_error, "'" + port + "' takes " + type_name(datatype) +
                                                 ", which cannot be written");
    return {end, datatype};
}

}  // namespace host
