#include "host/inspect_command.hpp"

#include <algorithm>
#include <iostream>

#include "common/diagnostics.hpp"
#include "common/suggestion.hpp"
#include "host/inspect_text.hpp"
#include "host/standard_output.hpp"
#include "host/type_explorer.hpp"

namespace host {
namespace {

using tool::ExitCode;
using tool::Json;

/// The types that were asked for.
std::vector<std::string> chosen_types(const InspectOptions& options, const PluginTypes& all) {
    if (!options.type)
        return all.types;
    if (std::find(all.types.begin(), all.types.end(), *options.type) != all.types.end())
        return {*options.type};
    if (all.misbehaviour)  // which may be why it is not there
        return {};
    const std::string help = tool::did_you_mean(*options.type, all.types);
    throw tool::Failure(ExitCode::usage,
                        tool::with_help("no block type '" + *options.type + "' in the plug-in '" +
                                            options.plugin.name + "'",
                                        help));
}

Json inspect_type(const InspectedPlugin& plugin, const std::string& name) {
    Json type = {{"type", name}};
    type.update(explore_type([&](const Fenwa::BlockConfiguration& settings) {
        return try_block(plugin, name, settings);
    }));
    return type;
}

}  // namespace

ExitCode inspect_plugin(const InspectOptions& options) {
    open_closed_streams();
    StandardOutput out([] {});
    const PluginTypes listed = list_types(options.plugin);
    ExitCode code = ExitCode::done;
    if (listed.misbehaviour) {
        tool::print_error_line("fenwa: the plug-in '" + options.plugin.name + "' " +
                               listed.misbehaviour->text);
        code = ExitCode::threw;
    }
    Json types = Json::array();
    for (const std::string& name : chosen_types(options, listed)) {
        types.push_back(inspect_type(options.plugin, name));
        if (!behaved(types.back()))
            code = ExitCode::threw;
    }
    if (options.format == EventFormat::json) {
        const Json document = {
            {"plugin", options.plugin.name}, {"file", listed.file}, {"types", std::move(types)}};
        out.write(tool::json_line(document) + '\n');
    } else {
        out.write(types_as_text(types, tool::Palette(tool::use_color(options.color, stdout))));
    }
    return code_after(out, code);
}

}  // namespace host
