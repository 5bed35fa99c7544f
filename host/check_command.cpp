#include "host/check_command.hpp"

#include <iostream>

#include "host/graph_reader.hpp"

namespace host {

using tool::ExitCode;

CheckedGraph read_and_check(const std::string& path, const std::vector<std::string>& plugin_dirs,
                            tool::Diagnostics& diagnostics, Strictness strictness,
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
        checked.code = ExitCode::threw;
    return checked;
}

ExitCode check_graph_file(const CheckOptions& options) {
    tool::Diagnostics diagnostics(options.graph);
    const CheckedGraph checked =
        read_and_check(options.graph, options.plugin_dirs, diagnostics, Strictness::alone);
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
