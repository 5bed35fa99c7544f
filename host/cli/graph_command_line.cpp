#include <memory>

#include "host/cli/graph.hpp"
#include "host/cli/options.hpp"
#include "host/draw/graphviz.hpp"

namespace host {

Command add_graph_command(CLI::App& program) {
    const auto options = std::make_shared<GraphOptions>();
    CLI::App& graph = add_command(
        program, "graph",
        "Draws a graph, or that of a running host, as a text for Graphviz or as a picture");
    graph.add_option("GRAPH", options->graph, "The graph file (TOML); none with --control");
    add_plugin_dirs(graph, options->plugin_dirs);
    CLI::Option& control = add_control_flag(
        graph, options->control,
        "Draws what runs under com.tarlo.Fenwa.Host1 or this name, with its values");
    graph.add_option("--bus", options->bus, "The bus: system, session or a D-Bus address")
        ->type_name("ADDRESS")
        ->needs(&control)
        ->capture_default_str();
    graph
        .add_option_function<std::string>(
            "--output", [options](const std::string& file) { options->output = file; },
            "Renders into this file, *.svg or *.png; needs Graphviz")
        ->type_name("FILE")
        ->check(CLI::Validator(check_picture_name, ""));
    add_color(graph, options->color);
    return {&graph, [options] { return draw_graph(*options); }};
}

}  // namespace host
