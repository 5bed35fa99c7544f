#include <memory>

#include "host/cli/options.hpp"
#include "host/cli/run.hpp"

namespace host {
Command add_run_command(CLI::App& program) {
    const auto options = std::make_shared<RunOptions>();
    CLI::App& run = add_command(program, "run", "Runs a graph until SIGINT or SIGTERM");
    add_graph(run, options->graph);
    add_plugin_dirs(run, options->plugin_dirs);
    add_color(run, options->color);
    run.add_option("--bus", options->bus,
                   "The bus: system, session or a D-Bus address, instead of the graph's own")
        ->type_name("ADDRESS");
    add_format(run, options->format);
    add_seconds(
        run, "--for", [options](std::chrono::microseconds time) { options->duration = time; },
        "Stops after this many seconds, as on SIGTERM");
    add_seconds(
        run, "--call-timeout",
        [options](std::chrono::microseconds time) { options->call_timeout = time; },
        "Longest wait for the bus and for a reply")
        .default_str("25");
    add_control_flag(run, options->control,
                     "Lets others read, write and watch ports and change settings over the bus, "
                     "under com.tarlo.Fenwa.Host1 or this name");
    return {&run, [options] { return run_graph(*options); }};
}

}  // namespace host
