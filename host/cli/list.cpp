#include <fmt/format.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "common/bus/bus.hpp"
#include "common/cli/options.hpp"
#include "common/events/message.hpp"
#include "common/events/print_text.hpp"
#include "common/process/exit_code.hpp"
#include "common/text/line_text.hpp"
#include "common/text/terminal.hpp"
#include "host/check/inspection.hpp"
#include "host/cli/options.hpp"
#include "host/control/host_search.hpp"
#include "host/plugin/block_types.hpp"

namespace host {
namespace {

using common::ExitCode;
using common::Json;

/// How long a plug-in may take to load.
constexpr std::chrono::seconds load_limit{5};
/// How long the bus and the owners of its names may take to answer.
constexpr std::chrono::seconds answer_limit{2};

struct ListOptions {
    std::vector<std::string> plugin_dirs;
    std::string bus = "system";
    common::EventFormat format = common::EventFormat::text;
    common::ColorChoice color = common::ColorChoice::automatic;
};

/// {"plugin": NAME, "file": PATH, "types": [NAME, …]}, with "failure" if it cannot be used.
Json describe_plugin(const std::filesystem::path& file) {
    Json plugin = {
        {"plugin", file.filename().string()}, {"file", file.string()}, {"types", Json::array()}};
    try {
        const PluginTypes listed = list_types({file.string(), {}, load_limit});
        plugin["types"] = listed.types;
        if (listed.misbehaviour)
            plugin["failure"] = listed.misbehaviour->text;
    } catch (const common::Failure& failure) {
        plugin["failure"] = failure.what();
    }
    return plugin;
}

/// [{"name": BUS_NAME, "process": PID or null}, …]; null, with a message, without a bus.
Json describe_hosts(const std::string& address) {
    try {
        const common::BusPtr bus = common::open_bus(address, answer_limit);
        Json hosts = Json::array();
        for (const FoundHost& found : find_hosts(*bus, answer_limit))
            hosts.push_back(
                {{"name", found.name}, {"process", found.process ? Json(*found.process) : Json()}});
        return hosts;
    } catch (const std::exception& error) {
        common::print_message(common::Severity::warning,
                              fmt::format("hosts are not listed: {}", error.what()));
        return nullptr;
    }
}

std::string to_text(const Json& list, const std::string& bus, const common::Palette& colors) {
    const auto line = [](const Json& text) { return common::one_line(text.get<std::string>()); };
    std::string text = fmt::format("{}built in{}\n", colors.bold, colors.reset);
    for (const Json& type : list["built_in"])
        text += "  " + line(type) + '\n';
    for (const Json& plugin : list["plugins"]) {
        text += fmt::format("\n{}{}{}  {}{}{}\n", colors.bold, line(plugin["plugin"]), colors.reset,
                            colors.dim, line(plugin["file"]), colors.reset);
        for (const Json& type : plugin["types"])
            text += "  " + line(type) + '\n';
        if (plugin.contains("failure"))
            text += fmt::format("  {}{}{}\n", colors.red, line(plugin["failure"]), colors.reset);
    }
    const Json& hosts = list["hosts"];
    if (hosts.is_null())
        return text;
    text += fmt::format("\n{}{}hosts on the bus at '{}'{}\n", colors.bold,
                        hosts.empty() ? "no " : "", common::one_line(bus), colors.reset);
    for (const Json& host : hosts)
        text +=
            "  " + line(host["name"]) +
            (host["process"].is_null() ? std::string()
                                       : fmt::format("  process {}", host["process"].get<int>())) +
            '\n';
    return text;
}

/// Prints the plug-ins that are installed with their types, and the hosts on a bus, on stdout. As
/// JSON: {"built_in": [TYPE, …], "plugins": […], "hosts": […] or null}.
ExitCode list_all(const ListOptions& options) {
    Json plugins = Json::array();
    for (const std::filesystem::path& file : plugins_in_folders(options.plugin_dirs))
        plugins.push_back(describe_plugin(file));
    const Json list = {{"built_in", list_types({"", {}, load_limit, true}).types},
                       {"plugins", std::move(plugins)},
                       {"hosts", describe_hosts(options.bus)}};
    if (options.format == common::EventFormat::json)
        common::print_text(common::json_line(list) + '\n');
    else
        common::print_text(
            to_text(list, options.bus, common::Palette(common::use_color(options.color, stdout))));
    return ExitCode::done;
}

}  // namespace

common::Command list_command() {
    const auto options = std::make_shared<ListOptions>();
    return {.name = "list",
            .help =
                "Prints the plug-ins that are installed, with their block types, and the "
                "hosts on the bus that have --control",
            .options = {plugin_dir_option(options->plugin_dirs),
                        common::bus_option("The bus", options->bus),
                        common::format_option("the output", options->format),
                        common::color_option(options->color)},
            .run = [options] { return list_all(*options); }};
}

}  // namespace host
