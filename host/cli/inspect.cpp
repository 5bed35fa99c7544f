#include <algorithm>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "common/process/exit_code.hpp"
#include "common/text/diagnostics.hpp"
#include "common/text/json.hpp"
#include "common/text/suggestion.hpp"
#include "common/text/terminal.hpp"
#include "host/check/inspection.hpp"
#include "host/cli/options.hpp"
#include "host/output/event_writer.hpp"
#include "host/output/inspect_text.hpp"
#include "host/output/standard_output.hpp"

namespace host {
namespace {

using common::ExitCode;
using common::Json;

/// What `fenwa inspect` was asked for.
struct InspectOptions {
    InspectedPlugin plugin{{}, {}, std::chrono::seconds(5)};
    std::optional<std::string> type;  ///< all of them without one
    EventFormat format = EventFormat::text;
    common::ColorChoice color = common::ColorChoice::automatic;
};

/// The types that were asked for.
std::vector<std::string> chosen_types(const InspectOptions& options, const PluginTypes& all) {
    if (!options.type)
        return all.types;
    if (std::find(all.types.begin(), all.types.end(), *options.type) != all.types.end())
        return {*options.type};
    if (all.misbehaviour)  // which may be why it is not there
        return {};
    const std::string help = common::did_you_mean(*options.type, all.types);
    throw common::Failure(ExitCode::usage,
                          common::with_help("no block type '" + *options.type +
                                                "' in the plug-in '" + options.plugin.name + "'",
                                            help));
}

/// Prints the block types of a plug-in on stdout, in the order in which it registers them. As JSON:
/// {"plugin": NAME, "file": PATH, "types": [as `inspect_type`, …]}.
/// @returns `threw` when the entry point or a block threw, crashed or hung.
/// @throws common::Failure `unreadable` when the plug-in is not there or is none, `usage` when it
/// has
///         no such type.
ExitCode inspect_plugin(const InspectOptions& options) {
    open_closed_streams();
    StandardOutput out([] {});
    const PluginTypes listed = list_types(options.plugin);
    ExitCode code = ExitCode::done;
    if (listed.misbehaviour) {
        common::print_error_line("fenwa: the plug-in '" + options.plugin.name + "' " +
                                 listed.misbehaviour->text);
        code = ExitCode::software;
    }
    Json types = Json::array();
    for (const std::string& name : chosen_types(options, listed)) {
        types.push_back(inspect_type(options.plugin, name));
        if (!behaved(types.back()))
            code = ExitCode::software;
    }
    if (options.format == EventFormat::json) {
        const Json document = {
            {"plugin", options.plugin.name}, {"file", listed.file}, {"types", std::move(types)}};
        out.write(common::json_line(document) + '\n');
    } else {
        out.write(types_as_text(types, common::Palette(common::use_color(options.color, stdout))));
    }
    return code_after(out, code);
}

}  // namespace

Command add_inspect_command(CLI::App& program) {
    const auto options = std::make_shared<InspectOptions>();
    CLI::App& inspect =
        add_command(program, "inspect",
                    "Prints the block types of a plug-in with ports and keys; needs no bus");
    inspect
        .add_option("PLUGIN", options->plugin.name,
                    "As in a graph: a name in the plug-in folders, or a path with a slash")
        ->required();
    inspect.add_option_function<std::string>(
        "TYPE", [options](const std::string& type) { options->type = type; },
        "One block type instead of all");
    add_plugin_dirs(inspect, options->plugin.plugin_dirs);
    add_format(inspect, options->format, "output");
    add_color(inspect, options->color);
    add_seconds(
        inspect, "--time-limit",
        [options](std::chrono::microseconds time) { options->plugin.limit = time; },
        "Longest wait for the plug-in to load, and for a block to be built")
        .default_str("5");
    return {&inspect, [options] { return inspect_plugin(*options); }};
}

}  // namespace host
