#include "host/cli/inspect.hpp"

#include <algorithm>
#include <iostream>

#include "common/text/diagnostics.hpp"
#include "common/text/suggestion.hpp"
#include "host/check/type_explorer.hpp"
#include "host/output/inspect_text.hpp"
#include "host/output/standard_output.hpp"

namespace host {
namespace {

using common::ExitCode;
using common::Json;

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
        common::print_error_line("fenwa: the plug-in '" + options.plugin.name + "' " +
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
        out.write(common::json_line(document) + '\n');
    } else {
        out.write(types_as_text(types, common::Palette(common::use_color(options.color, stdout))));
    }
    return code_after(out, code);
}

}  // namespace host
