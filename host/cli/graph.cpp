#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "common/cli/options.hpp"
#include "common/events/message.hpp"
#include "common/events/print_text.hpp"
#include "common/process/exit_code.hpp"
#include "common/text/terminal.hpp"
#include "framework/shared/host_access.hpp"
#include "host/check/graph_check.hpp"
#include "host/cli/options.hpp"
#include "host/draw/diagram.hpp"
#include "host/draw/dot.hpp"
#include "host/draw/graphviz.hpp"
#include "host/graph/block_json.hpp"

namespace host {
namespace {

using common::ExitCode;
using common::Failure;
using common::Json;

/// The graph of a file or that of a running host.
struct GraphOptions {
    std::string graph;                   ///< the file; empty for a running host
    std::optional<std::string> control;  ///< bus name of the running host
    std::string bus = "system";          ///< where that is
    std::vector<std::string> plugin_dirs;
    std::optional<std::string> output;  ///< a file to render into, instead of DOT on stdout
    common::ColorChoice color = common::ColorChoice::automatic;
};

/// The graph of a file in the form of a running one; null, with its mistakes on stderr, for one
/// that has some.
Json describe_file(const GraphOptions& options, ExitCode& code) {
    common::Diagnostics diagnostics(options.graph);
    const auto look = [](const Probe& probed) {
        return to_json(probed.entry(), probed.block(),
                       Fenwa::HostAccess::configuration(*probed.block().block));
    };
    const CheckedGraph checked =
        read_and_check(options.graph, options.plugin_dirs, diagnostics, Strictness::alone, look);
    code = checked.code;
    common::print_diagnostics(diagnostics, common::use_color(options.color, stderr));
    if (code != ExitCode::done)
        return {};
    Json blocks = Json::array();
    for (const BlockEntry& entry : checked.graph->blocks) {
        const common::SharedJson& seen = checked.probe.blocks.at(entry.name).look;
        blocks.push_back(seen == nullptr ? to_json(entry, {}, entry.configuration()) : *seen);
    }
    return {{"blocks", std::move(blocks)}, {"connections", to_json(checked.graph->connections)}};
}

Diagram diagram_of_host(const ControlTarget& target) {
    return connect_to_host(target).read_json("Describe", [](const Json& description) {
        return make_diagram(description, DiagramValues::shown);
    });
}

/// Draws a graph: one of a file with its ports, datatypes and connections as a check finds them;
/// one of a running host with its values, and the services that its blocks have talked to. The
/// mistakes of a file go to stderr; one with errors is not drawn.
/// @returns and @throws as `check` for a file.
/// @throws common::Failure `usage` when none or both are asked for, `unreadable` when the file
/// cannot
///         be read, `unavailable` when there is no such host or it cannot be rendered.
ExitCode draw_graph(const GraphOptions& options) {
    if (options.graph.empty() && !options.control)
        throw Failure(ExitCode::usage, "GRAPH or --control is required");
    if (!options.graph.empty() && options.control)
        throw Failure(ExitCode::usage, "GRAPH and --control exclude each other");
    Diagram picture;
    if (options.control) {
        picture = diagram_of_host({options.bus, *options.control});
    } else {
        ExitCode code = ExitCode::done;
        const Json description = describe_file(options, code);
        if (code != ExitCode::done)
            return code;
        picture = make_diagram(description, DiagramValues::hidden);
    }
    const std::string dot = to_dot(picture);
    if (options.output) {
        render(dot, *options.output);
        return ExitCode::done;
    }
    common::print_text(dot);
    return ExitCode::done;
}

}  // namespace

common::Command graph_command() {
    const auto options = std::make_shared<GraphOptions>();
    common::Option bus = common::bus_option("The bus", options->bus);
    bus.needs = "--control";
    return {.name = "graph",
            .help =
                "Draws a graph, or that of a running host, as a text for Graphviz or as a "
                "picture",
            .arguments = {{.name = "GRAPH",
                           .help = "The graph file (TOML); none with --control",
                           .take = common::into(options->graph)}},
            .options = {plugin_dir_option(options->plugin_dirs),
                        control_flag(options->control,
                                     "Draws what runs under com.tarlo.Fenwa.Host1 or this name, "
                                     "with its values"),
                        bus,
                        {.name = "--output",
                         .value = "FILE",
                         .help = "Renders into this file, *.svg or *.png; needs Graphviz",
                         .take =
                             [options](const std::string& file) {
                                 options->output = file;
                                 return check_picture_name(file);
                             }},
                        common::color_option(options->color)},
            .run = [options] { return draw_graph(*options); }};
}

}  // namespace host
