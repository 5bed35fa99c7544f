#include "host/graph_command.hpp"

#include <iostream>

#include "framework/shared/host_access.hpp"
#include "host/block_description.hpp"
#include "host/check_command.hpp"
#include "host/control_client.hpp"
#include "host/dot_text.hpp"
#include "host/graphviz.hpp"
#include "host/picture.hpp"
#include "host/standard_output.hpp"

namespace host {
namespace {

using tool::ExitCode;
using tool::Failure;
using tool::Json;

/// The graph of a file in the form of a running one; null, with its mistakes on stderr, for one
/// that has some.
Json describe_file(const GraphOptions& options, ExitCode& code) {
    tool::Diagnostics diagnostics(options.graph);
    BlockTypes types(nullptr);
    Json description;
    const auto look = [&description](const Graph& graph, const BlocksByName& blocks) {
        Json described = Json::array();
        for (const BlockEntry& entry : graph.blocks) {
            const ConnectableBlock& block = blocks.at(entry.name);
            described.push_back(describe_block(
                entry, block,
                block.block == nullptr ? entry.configuration()
                                       : Fenwa::HostAccess::configuration(*block.block)));
        }
        description = {{"blocks", std::move(described)},
                       {"connections", describe_connections(graph)}};
    };
    code = read_and_check(options.graph, options.plugin_dirs, types, diagnostics, Strictness::alone,
                          look)
               .code;
    diagnostics.print(std::cerr, tool::use_color(options.color, stderr));
    return code == ExitCode::done ? description : Json();
}

Picture picture_of_host(const ControlTarget& target) {
    return ControlClient(target).with_description([](const Json& description) {
        return make_picture(description, PictureValues::shown);
    });
}

}  // namespace

ExitCode draw_graph(const GraphOptions& options) {
    if (options.graph.empty() && !options.control)
        throw Failure(ExitCode::usage, "GRAPH or --control is required");
    if (!options.graph.empty() && options.control)
        throw Failure(ExitCode::usage, "GRAPH and --control exclude each other");
    open_closed_streams();
    Picture picture;
    if (options.control) {
        picture = picture_of_host({options.bus, *options.control});
    } else {
        ExitCode code = ExitCode::done;
        const Json description = describe_file(options, code);
        if (code != ExitCode::done)
            return code;
        picture = make_picture(description, PictureValues::hidden);
    }
    const std::string dot = to_dot(picture);
    if (options.output) {
        render(dot, *options.output);
        return ExitCode::done;
    }
    StandardOutput out([] {});
    out.write(dot);
    return code_after(out, ExitCode::done);
}

}  // namespace host
