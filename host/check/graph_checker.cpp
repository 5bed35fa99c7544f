#include "host/check/graph_checker.hpp"

#include <systemd/sd-bus.h>

#include <map>
#include <string>
#include <utility>

#include "host/graph/reader.hpp"

namespace host {
namespace {

using common::Diagnostics;
using common::ExitCode;
using common::in_quotes;

/// Warns of objects that the bus connection will take from one block only.
void check_exports(const Graph& graph, const ProbeResult& probe, Diagnostics& diagnostics) {
    std::map<std::pair<std::string, std::string>, std::string> exporters;
    for (const BlockEntry& entry : graph.blocks) {
        for (const auto& object : probe.blocks.at(entry.name).exports) {
            const auto& [path, interface] = object;
            const std::string what = "'" + interface + "' at '" + path + "'";
            if (sd_bus_object_path_is_valid(path.c_str()) <= 0 ||
                sd_bus_interface_name_is_valid(interface.c_str()) <= 0) {
                diagnostics.warning(entry.location,
                                    "the block " + in_quotes(entry.name) + " cannot export " +
                                        what + ": the path or the interface name is not valid");
                continue;
            }
            const auto [first, is_new] = exporters.emplace(object, entry.name);
            if (!is_new && first->second == entry.name)
                diagnostics.warning(entry.location, "the block " + in_quotes(entry.name) +
                                                        " exports " + what +
                                                        " twice; only the first one is reached");
            else if (!is_new)
                diagnostics.warning(entry.location, "the blocks " + in_quotes(first->second) +
                                                        " and " + in_quotes(entry.name) +
                                                        " both export " + what +
                                                        "; only the first one is reached");
        }
    }
}

}  // namespace

ProbeResult check_graph(const Graph& graph, BlockTypes& types,
                        const std::vector<std::string>& plugin_dirs, Diagnostics& diagnostics,
                        Strictness strictness, const BlockLook& look) {
    ProbeJob job{types, graph.plugins, plugin_dirs, {}, strictness, look};
    for (const BlockEntry& entry : graph.blocks)
        job.blocks.push_back(&entry);
    ProbeResult seen = probe(job, diagnostics);
    check_exports(graph, seen, diagnostics);
    PortsByName ports;
    for (const auto& [name, block] : seen.blocks)
        ports.emplace(name, block.ports);
    check_connections(graph, ports, diagnostics);
    return seen;
}

CheckedGraph read_and_check(const std::string& path, const std::vector<std::string>& plugin_dirs,
                            common::Diagnostics& diagnostics, Strictness strictness,
                            const BlockLook& look) {
    CheckedGraph checked{read_graph(path, diagnostics), {}, ExitCode::misconfigured};
    if (!checked.graph)
        return checked;
    BlockTypes types(nullptr);
    checked.probe = check_graph(*checked.graph, types, plugin_dirs, diagnostics, strictness, look);
    // A throw is reported as an error too; it gives the code only where nothing else is wrong.
    if (diagnostics.errors() == 0)
        checked.code = ExitCode::done;
    else if (diagnostics.errors() == checked.probe.throws)
        checked.code = ExitCode::software;
    return checked;
}

}  // namespace host
