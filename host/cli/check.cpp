#include <fmt/format.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "common/cli/options.hpp"
#include "common/events/message.hpp"
#include "common/events/print_text.hpp"
#include "common/process/exit_code.hpp"
#include "common/text/diagnostics.hpp"
#include "common/text/terminal.hpp"
#include "host/check/graph_check.hpp"
#include "host/cli/options.hpp"

namespace host {
namespace {

using common::ExitCode;

struct CheckOptions {
    std::string graph;
    std::vector<std::string> plugin_dirs;
    bool deny_warnings = false;
    common::EventFormat format = common::EventFormat::text;
    common::ColorChoice color = common::ColorChoice::automatic;
};

/// Reports every mistake of a graph on stderr, as JSON on stdout.
/// @throws as `read_and_check`.
ExitCode check_graph_file(const CheckOptions& options) {
    common::Diagnostics diagnostics(options.graph);
    const CheckedGraph checked =
        read_and_check(options.graph, options.plugin_dirs, diagnostics, Strictness::alone);
    if (options.format == common::EventFormat::json) {
        std::ostringstream lines;
        diagnostics.print_json(lines);
        common::print_text(lines.str());
    } else {
        common::print_diagnostics(diagnostics, common::use_color(options.color, stderr));
    }
    if (checked.code != ExitCode::done)
        return checked.code;
    if (options.deny_warnings && diagnostics.warnings() != 0)
        return ExitCode::misconfigured;
    common::print_message(
        common::Severity::info,
        fmt::format("{}: {} ({}, {})", options.graph,
                    diagnostics.warnings() == 0 ? "no mistakes" : "no errors",
                    common::counted(checked.graph->blocks.size(), "block"),
                    common::counted(checked.graph->connections.size(), "connection")));
    return ExitCode::done;
}

}  // namespace

common::Command check_command() {
    const auto options = std::make_shared<CheckOptions>();
    return {.name = "check",
            .help = "Reports every mistake of a graph; needs no bus",
            .arguments = {graph_argument(options->graph)},
            .options = {plugin_dir_option(options->plugin_dirs),
                        common::format_option("the mistakes", options->format),
                        common::color_option(options->color),
                        {.name = "--deny-warnings",
                         .help = "Warnings count as mistakes for the exit code",
                         .take = common::into(options->deny_warnings)}},
            .run = [options] { return check_graph_file(*options); }};
}

}  // namespace host
