#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/cli/options.hpp"
#include "common/events/message.hpp"
#include "common/events/print_text.hpp"
#include "common/process/exit_code.hpp"
#include "common/text/diagnostics.hpp"
#include "common/text/json.hpp"
#include "common/text/suggestion.hpp"
#include "common/text/terminal.hpp"
#include "host/check/described_type.hpp"
#include "host/check/inspection.hpp"
#include "host/cli/options.hpp"
#include "host/output/inspect_text.hpp"
#include "host/plugin/block_types.hpp"
#include "host/plugin/type_data.hpp"

namespace host {
namespace {

using common::ExitCode;
using common::Json;

struct InspectOptions {
    InspectedPlugin plugin{{}, {}, std::chrono::seconds(5)};
    std::optional<std::string> type;  ///< all of them without one
    common::EventFormat format = common::EventFormat::text;
    common::ColorChoice color = common::ColorChoice::automatic;
};

/// Takes an argument that is a block type for what it is: one of the host's own types, or one of
/// the plug-ins in the folders.
void find_type(InspectOptions& options) {
    if (options.type)
        return;
    const std::string& name = options.plugin.name;
    InspectedPlugin built_in = options.plugin;
    built_in.built_in = true;
    const auto has_type = [&name](const InspectedPlugin& plugin) {
        try {
            const std::vector<std::string> types = list_types(plugin).types;
            return std::find(types.begin(), types.end(), name) != types.end();
        } catch (const common::Failure&) {
            return false;  // it cannot be used
        }
    };
    if (has_type(built_in)) {
        options.type = std::exchange(built_in.name, "");
        options.plugin = built_in;
        return;
    }
    if (name.find('/') != std::string::npos || name.ends_with(".so"))
        return;
    for (const std::filesystem::path& file : plugins_in_folders(options.plugin.plugin_dirs)) {
        InspectedPlugin plugin = options.plugin;
        plugin.name = file.filename().string();
        if (has_type(plugin)) {
            options.type = std::exchange(options.plugin.name, plugin.name);
            return;
        }
    }
}

/// The types to be printed.
std::vector<std::string> chosen_types(const InspectOptions& options, const PluginTypes& all) {
    if (!options.type)
        return all.types;
    if (std::find(all.types.begin(), all.types.end(), *options.type) != all.types.end())
        return {*options.type};
    if (all.misbehaviour)  // which may be why the type is missing
        return {};
    const std::string help = common::did_you_mean(*options.type, all.types);
    throw common::Failure(ExitCode::usage,
                          common::with_help(fmt::format("no block type '{}' in the plug-in '{}'",
                                                        *options.type, options.plugin.name),
                                            help));
}

/// Prints the block types of a plug-in on stdout, in the order in which it registers them, and the
/// mistakes of its data file on stderr. As JSON:
/// {"plugin": NAME, "file": PATH, "types": [as `inspect_type` and `described`, …]}, both null for
/// the host's own.
/// @returns `software` if the entry point or a block threw, crashed or hung.
/// @throws common::Failure `unreadable` if the plug-in cannot be loaded, `usage` if it has no such
///         type.
ExitCode inspect_plugin(InspectOptions options) {
    find_type(options);
    const PluginTypes listed = list_types(options.plugin);
    ExitCode code = ExitCode::done;
    if (listed.misbehaviour) {
        common::print_message(
            common::Severity::error,
            fmt::format("the plug-in '{}' {}", options.plugin.name, listed.misbehaviour->text));
        code = ExitCode::software;
    }
    common::Diagnostics data_mistakes(options.plugin.name);
    TypeCatalog catalog;
    if (!listed.file.empty())
        catalog.read(listed.file, data_mistakes);
    if (!listed.misbehaviour)
        report_unknown_types(catalog, listed.types, data_mistakes);
    Json types = Json::array();
    for (const std::string& name : chosen_types(options, listed)) {
        types.push_back(inspect_type(options.plugin, name));
        if (!behaved(types.back()))
            code = ExitCode::software;
        if (const TypeData* const data = catalog.find(name))
            types.back() = described(types.back(), *data, data_mistakes);
    }
    common::print_diagnostics(data_mistakes, common::use_color(options.color, stderr));
    if (options.format == common::EventFormat::json) {
        Json document = {
            {"plugin", options.plugin.name}, {"file", listed.file}, {"types", std::move(types)}};
        if (options.plugin.built_in)
            document["plugin"] = document["file"] = nullptr;
        common::print_text(common::json_line(document) + '\n');
    } else {
        common::print_text(
            types_as_text(types, common::Palette(common::use_color(options.color, stdout))));
    }
    return code;
}

}  // namespace

common::Command inspect_command() {
    const auto options = std::make_shared<InspectOptions>();
    return {
        .name = "inspect",
        .help = "Prints the block types of a plug-in with ports and keys; needs no bus",
        .arguments = {{.name = "PLUGIN",
                       .help = "As in a graph: a name in the plug-in folders, or a path with a "
                               "slash; or a block type, Timer or one of those plug-ins",
                       .take = common::into(options->plugin.name),
                       .required = true},
                      {.name = "TYPE",
                       .help = "One block type instead of all",
                       .take = common::into(options->type)}},
        .options = {plugin_dir_option(options->plugin.plugin_dirs),
                    common::format_option("the output", options->format),
                    common::color_option(options->color),
                    {.name = "--time-limit",
                     .value = "SECONDS",
                     .help = "Longest wait for the plug-in to load, and for a block to be built",
                     .default_text = "5",
                     .take = common::into(options->plugin.limit)}},
        .run = [options] { return inspect_plugin(*options); }};
}

}  // namespace host
