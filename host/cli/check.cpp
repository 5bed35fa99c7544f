#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/process/exit_code.hpp"
#include "common/text/diagnostics.hpp"
#include "common/text/terminal.hpp"
#include "host/check/graph_check.hpp"
#include "host/cli/options.hpp"

namespace host {
namespace {

using common::ExitCode;

/// What `fenwa check` was asked for.
struct CheckOptions {
    std::string graph;
    std::vector<std::string> plugin_dirs;
    bool deny_warnings = false;
    common::ColorChoice color = common::ColorChoice::automatic;
};

/// Reports every mistake of a graph on stderr.
/// @throws as `read_and_check`.
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

}  // namespace

Command add_check_command(CLI::App& program) {
    const auto options = std::make_shared<CheckOptions>();
    CLI::App& check =
        add_command(program, "check", "Reports every mistake of a graph; needs no bus");
    add_graph(check, options->graph);
    add_plugin_dirs(check, options->plugin_dirs);
    add_color(check, options->color);
    check.add_flag("--deny-warnings", options->deny_warnings,
                   "Warnings count as mistakes for the exit code");
    return {&check, [options] { return check_graph_file(*options); }};
}

}  // namespace host
