#include "host/check_command.hpp"

#include <iostream>

#include "host/graph_reader.hpp"

namespace host {

using tool::ExitCode;

CheckedGraph read_and_check(const std::string& path, const std::vector<std::string>& plugin_dirs,
                            BlockTypes& types, tool::Diagnostics& diagnostics,
                            Strictness strictness, const GraphLook& look) {
    return check_read_graph(read_graph(path, diagnostics), plugin_dirs, types, diagnostics,
                            strictness, look);
}

CheckedGraph check_read_graph(std::optional<Graph> graph,
                              const std::vector<std::string>& plugin_dirs, BlockTypes& types,
                              tool::Diagnostics& diagnostics, Strictness strictness,
                              const GraphLook& look) {
    CheckedGraph checked{std::move(graph), ExitCode::misconfigured};
    if (!checked.graph)
        return checked;
    const bool plugins_quiet = types.load(*checked.graph, plugin_dirs, diagnostics);
    const CheckResult result = check_graph(*checked.graph, types, diagnostics, strictness,
                                           [&](const BlocksByName& blocks) {
                                               if (look)
                                                   look(*checked.graph, blocks);
                                           });
    // A throw is reported as an error too; it gives the code only where nothing else is wrong.
    const std::size_t throws = result.throws + (plugins_quiet ? 0U : 1U);
    if (diagnostics.errors() == 0)
        checked.code = ExitCode::done;
    else if (throws != 0 && diagnostics.errors() == throws)
        checked.code = ExitCode::threw;
    return checked;
}

ExitCode check_graph_file(const CheckOptions& options) {
    tool::Diagnostics diagnostics(options.graph);
    BlockTypes types(nullptr);
    const CheckedGraph checked =
        read_and_check(options.graph, options.plugin_dirs, types, diagnostics, Strictness::alone);
    diagnostics.print(std::cerr, tool::use_color(options.color, stderr));
    if (checked.code != ExitCode::done)
        return checked.code;
    if (options.deny_warnings && diagnostics.warnings() != 0)
        return ExitCode::misconfigured;
    tool::print_error_line("fenwa: " + options.graph +
                           (diagnostics.warnings() == 0 ? ": no mistakes (" : ": no errors (") +
                           tool::counted(checked.graph->blocks.size(), "block") + ", " +
                           tool::counted(checked.graph->connections.size(), "connection") + ")");
    return ExitCode::done;
}

}  // namespace host
