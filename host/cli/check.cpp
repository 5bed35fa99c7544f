#include "host/cli/check.hpp"

#include <iostream>

#include "host/graph/reader.hpp"

namespace host {

using common::ExitCode;

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
        checked.code = ExitCode::threw;
    return checked;
}

ExitCode check_graph_file(const CheckOptions& options) {
    common::Diagnostics diagnostics(options.graph);
    const CheckedGraph checked =
        read_and_check(options.graph, options.plugin_dirs, diagnostics, Strictness::alone);
    diagnostics.print(std::cerr, common::use_color(options.color, stderr));
    if (checked.code != ExitCode::done)
        return checked.code;
    if (options.deny_warnings && diagnostics.warnings() != 0)
        return ExitCode::misconfigured;
    common::print_error_line("fenwa: " + options.graph +
                             (diagnostics.warnings() == 0 ? ": no mistakes (" : ": no errors (") +
                             common::counted(checked.graph->blocks.size(), "block") + ", " +
                             common::counted(checked.graph->connections.size(), "connection") +
                             ")");
    return ExitCode::done;
}

}  // namespace host
