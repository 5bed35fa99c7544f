#include "host/cli/graph.hpp"

#include <iostream>

#include "framework/shared/host_access.hpp"
#include "host/cli/check.hpp"
#include "host/control/client.hpp"
#include "host/draw/diagram.hpp"
#include "host/draw/dot.hpp"
#include "host/draw/graphviz.hpp"
#include "host/graph/block_json.hpp"
#include "host/output/standard_output.hpp"

namespace host {
namespace {

using common::ExitCode;
using common::Failure;
using common::Json;

/// The graph of a file in the form of a running one; null, with its mistakes on stderr, for one
/// that has some.
Json describe_file(const GraphOptions& options, ExitCode& code) {
    common::Diagnostics diagnostics(options.graph);
    const auto look = [](const DryConstruction& dry) {
        return describe_block(dry.entry(), dry.block(),
                              Fenwa::HostAccess::configuration(*dry.block().block));
    };
    const CheckedGraph checked =
        read_and_check(options.graph, options.plugin_dirs, diagnostics, Strictness::alone, look);
    code = checked.code;
    diagnostics.print(std::cerr, common::use_color(options.color, stderr));
    if (code != ExitCode::done)
        return {};
    Json blocks = Json::array();
    for (const BlockEntry& entry : checked.graph->blocks) {
        const Json& seen = checked.probe.blocks.at(entry.name).look;
        blocks.push_back(seen.is_null() ? describe_block(entry, {}, entry.configuration()) : seen);
    }
    return {{"blocks", std::move(blocks)}, {"connections", describe_connections(*checked.graph)}};
}

Picture picture_of_host(const ControlTarget& target) {
    return ControlClient(target).with_description(
        [](const Json& description) { return make_picture(description, PictureValues::shown); });
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
