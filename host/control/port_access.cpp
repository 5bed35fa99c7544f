#include "host/control/port_access.hpp"

#include <fmt/core.h>

#include "common/text/suggestion.hpp"
#include "host/control/names.hpp"

namespace host {
namespace {

/// A port's name with its block.
struct Found {
    Endpoint end;
    const BlockInstance& block;
};

Found find_block(const RunningGraph& graph, const std::string& port) {
    const std::optional<Endpoint> end = parse_endpoint(port);
    if (!end)
        throw ControlError(unknown_port_error, fmt::format("{} is not of the form BLOCK.PORT",
                                                           common::in_quotes(port)));
    const BlockInstance* const block = graph.find(end->block);
    if (block == nullptr)
        refuse_unknown_block(graph.graph(), end->block);
    return {*end, *block};
}

[[noreturn]] void refuse_unknown(const Endpoint& end, const char* kind,
                                 const std::vector<std::string>& names) {
    common::Suggester suggester;
    throw ControlError(unknown_port_error,
                       fmt::format("the block {} has no {} {}", common::in_quotes(end.block), kind,
                                   common::in_quotes(end.port)),
                       port_help(end.port, kind, names, suggester));
}

}  // namespace

void refuse_unknown_block(const Graph& graph, const std::string& block) {
    std::vector<std::string> names;
    for (const BlockEntry& entry : graph.blocks)
        names.push_back(entry.name);
    throw ControlError(unknown_block_error,
                       fmt::format("no block {} in the graph", common::in_quotes(block)),
                       common::did_you_mean(block, names));
}

PortValue read_port(const RunningGraph& graph, const std::string& port) {
    const auto [end, block] = find_block(graph, port);
    std::optional<PortValue> value = block.input_value(end.port);
    if (!value)
        value = block.output_value(end.port);
    if (!value) {
        std::vector<std::string> names = block.ports().inport_names();
        for (const std::string& output : block.block()->get_outport_names())
            names.push_back(output);
        refuse_unknown(end, "port", names);
    }
    if (std::holds_alternative<std::monostate>(*value))
        throw ControlError(
            wrong_type_error,
            fmt::format("'{}' holds a value of a datatype that the host does not know", port));
    return *value;
}

WritableInput find_writable(const RunningGraph& graph, const std::string& port) {
    const auto [end, block] = find_block(graph, port);
    const Fenwa::InPortInternal* const input = block.ports().inport(end.port);
    if (input == nullptr) {
        if (block.block()->get_outport(end.port) != nullptr)
            throw ControlError(unknown_port_error,
                               fmt::format("'{}' is an output, not an input", port));
        refuse_unknown(end, "input", block.ports().inport_names());
    }
    for (const Connection& connection : graph.graph().connections) {
        if (connection.to.block == end.block && connection.to.port == end.port)
            throw ControlError(connected_input_error, fmt::format("'{}' is connected to '{}'", port,
                                                                  connection.from.text()));
    }
    const Fenwa::Datatype& datatype = input->datatype();
    const PortValue first = default_value(datatype);
    if (std::holds_alternative<std::monostate>(first) ||
        std::holds_alternative<Fenwa::datatype_timersource>(first))
        throw ControlError(wrong_type_error, fmt::format("'{}' takes {}, which cannot be written",
                                                         port, type_name(datatype)));
    return {end, datatype};
}

}  // namespace host
