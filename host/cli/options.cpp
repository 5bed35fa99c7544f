#include "host/cli/options.hpp"

#include <fmt/format.h>

#include "common/bus/bus.hpp"
#include "common/cli/options.hpp"
#include "common/text/line_text.hpp"

namespace host {
namespace {

using common::ExitCode;
using common::Option;

std::string check_bus_name(const std::string& name) {
    return common::is_ownable_name(name)
               ? std::string()
               : common::in_quotes(name) + " is not a valid well-known bus name";
}

}  // namespace

Option graph_argument(std::string& graph) {
    return {.name = "GRAPH",
            .help = "The graph file (TOML)",
            .take = common::into(graph),
            .required = true};
}

Option plugin_dir_option(std::vector<std::string>& plugin_dirs) {
    return {.name = "--plugin-dir",
            .value = "DIR",
            .help = "A further folder with plug-ins; may be repeated",
            .take = common::into(plugin_dirs),
            .count = Option::Count::repeated};
}

Option control_flag(std::optional<std::string>& name, const std::string& help) {
    return {.name = "--control",
            .value = "[=NAME]",
            .help = help,
            .take = [&name](const std::string& value) {
                name = value.empty() ? control_name : value;
                return check_bus_name(*name);
            }};
}

Option target_bus_option(ControlTarget& target) {
    return common::bus_option("The bus", target.bus);
}

Option target_name_option(ControlTarget& target) {
    return {.name = "--control",
            .value = "NAME",
            .help = "The bus name that the host was given with --control",
            .default_text = target.name,
            .take = [&target](const std::string& name) {
                target.name = name;
                return check_bus_name(name);
            }};
}

common::ControlClient connect_to_host(const ControlTarget& target) {
    return common::ControlClient(
        {.bus = target.bus,
         .name = target.name,
         .path = control_path,
         .interface = control_interface,
         .noun = "the host",
         .absent = fmt::format("no host owns '{}' on the bus at '{}'; start one with 'fenwa run "
                               "GRAPH --control', or name its bus with --bus",
                               target.name, target.bus),
         .errors = {{block_threw_error, ExitCode::software},
                    {rebuild_failed_error, ExitCode::software},
                    {control_error_prefix, ExitCode::usage}}});
}

}  // namespace host
