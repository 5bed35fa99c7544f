#include <memory>

#include "host/cli/inspect.hpp"
#include "host/cli/options.hpp"

namespace host {

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
