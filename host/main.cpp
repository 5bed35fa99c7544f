#include <cmath>

#include "common/command_line.hpp"
#include "host/check_command.hpp"
#include "host/control_command_line.hpp"
#include "host/run_command.hpp"

namespace {

constexpr const char* exit_codes =
    "Exit codes: 0 done, a stop by signal included; 2 the command line is wrong; 66 a file cannot "
    "be read;\n69 the bus cannot be reached, a name cannot be had, or the connection was lost; 70 "
    "a block or a\nplug-in threw; 78 the graph is wrong.";

/// A time in seconds, from a microsecond to thirty years, which clocks that count nanoseconds can
/// add to the time of day. CLI::Range would let "nan" through.
const CLI::Validator seconds_range(
    [](const std::string& text) {
        double seconds = 0.0;
        if (CLI::detail::lexical_cast(text, seconds) && seconds >= 1e-6 && seconds <= 1e9)
            return std::string();
        return "'" + text + "' is no number of seconds from 0.000001 to 1000000000";
    },
    "SECONDS");

std::chrono::microseconds to_microseconds(double seconds) {
    return std::chrono::microseconds(std::llround(seconds * 1e6));
}

void add_common_options(CLI::App& command, std::string& graph,
                        std::vector<std::string>& plugin_dirs, std::string& color) {
    command.add_option("GRAPH", graph, "The graph file (TOML)")->required();
    command
        .add_option("--plugin-dir", plugin_dirs, "A further folder with plug-ins; may be repeated")
        ->type_name("DIR")
        ->expected(1)
        ->take_all();
    command.add_option("--color", color, "Colours: auto, always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->capture_default_str();
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Runs graphs of Fenwa blocks on any Linux machine.", "fenwa");
    app.set_version_flag("--version", "fenwa " FENWA_VERSION);
    app.require_subcommand(1);
    app.footer(exit_codes);

    std::string color = "auto";
    std::string format = "text";
    std::string bus;
    std::string control;
    double duration = 0.0;
    double call_timeout = 25.0;
    host::RunOptions run_options;
    host::CheckOptions check_options;

    CLI::App& run = *app.add_subcommand("run", "Runs a graph until SIGINT or SIGTERM");
    run.set_version_flag("--version", "fenwa " FENWA_VERSION);
    add_common_options(run, run_options.graph, run_options.plugin_dirs, color);
    CLI::Option* const bus_option =
        run.add_option("--bus", bus,
                       "\"system\", \"session\" or a D-Bus address, instead of the "
                       "graph's own")
            ->type_name("ADDRESS");
    run.add_option("--format", format, "Event lines: text or json")
        ->check(CLI::IsMember({"text", "json"}))
        ->capture_default_str();
    CLI::Option* const duration_option =
        run.add_option("--for", duration, "Stops after this many seconds, as on SIGTERM")
            ->check(seconds_range);
    run.add_option("--call-timeout", call_timeout, "Longest wait for the bus and for a reply, s")
        ->check(seconds_range)
        ->capture_default_str();
    // A flag, because an option would take the graph behind it for its name.
    CLI::Option* const control_option =
        run.add_flag("--control", control,
                     "Lets others read, write and watch ports over the bus, under "
                     "com.tarlo.Fenwa.Host1\nor this name")
            ->option_text("[=NAME]")
            ->transform(host::control_flag);

    CLI::App& check =
        *app.add_subcommand("check", "Reports every mistake of a graph; needs no bus");
    check.set_version_flag("--version", "fenwa " FENWA_VERSION);
    add_common_options(check, check_options.graph, check_options.plugin_dirs, color);
    check.add_flag("--deny-warnings", check_options.deny_warnings,
                   "Warnings count as mistakes for the exit code");

    host::ControlCommands control_commands(app, "fenwa " FENWA_VERSION);

    return tool::run_command_line(app, argc, argv, [&] {
        if (const auto code = control_commands.run())
            return *code;
        if (check.parsed()) {
            check_options.color = tool::color_choice(color);
            return host::check_graph_file(check_options);
        }
        run_options.color = tool::color_choice(color);
        run_options.format = format == "json" ? host::EventFormat::json : host::EventFormat::text;
        if (!bus_option->empty())
            run_options.bus = bus;
        if (!duration_option->empty())
            run_options.duration = to_microseconds(duration);
        if (!control_option->empty())
            run_options.control = control;
        run_options.call_timeout = to_microseconds(call_timeout);
        return host::run_graph(run_options);
    });
}
