#include "host/cli/options.hpp"

#include <cmath>

#include "common/bus/bus.hpp"
#include "common/cli/command_line.hpp"
#include "common/text/line_text.hpp"
#include "common/text/number_text.hpp"

namespace host {
namespace {

/// A time in seconds, from a microsecond to thirty years, which clocks that count nanoseconds can
/// add to the time of day. CLI::Range would let "nan" through.
const CLI::Validator seconds_range(
    [](const std::string& text) {
        const std::optional<double> seconds = common::parse_number<double>(text);
        if (seconds && *seconds >= 1e-6 && *seconds <= 1e9)
            return std::string();
        return common::in_quotes(text) + " is no number of seconds from 0.000001 to 1000000000";
    },
    "SECONDS");

/// Makes the value of `--control[=NAME]` a bus name; refuses what is none.
const CLI::Validator control_flag(
    [](std::string& name) {
        // What CLI11 gives a flag without a value.
        if (name == "true")
            name = control_name;
        return check_bus_name(name);
    },
    "");

}  // namespace

const char* const program_version = "fenwa " FENWA_VERSION;

CLI::App& add_command(CLI::App& program, const char* name, const char* description) {
    CLI::App& command = *program.add_subcommand(name, description);
    common::add_version(command, program_version);
    return command;
}

void add_graph(CLI::App& command, std::string& graph) {
    command.add_option("GRAPH", graph, "The graph file (TOML)")->required();
}

void add_plugin_dirs(CLI::App& command, std::vector<std::string>& plugin_dirs) {
    command
        .add_option("--plugin-dir", plugin_dirs, "A further folder with plug-ins; may be repeated")
        ->type_name("DIR")
        ->expected(1)
        ->take_all()
        ->allow_extra_args(false);  // what stands behind the folder is no second one
}

void add_color(CLI::App& command, common::ColorChoice& color) {
    command
        .add_option_function<std::string>(
            "--color", [&color](const std::string& word) { color = common::color_choice(word); },
            "Whether to use colours")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->default_str("auto");
}

void add_format(CLI::App& command, EventFormat& format, const char* what) {
    command
        .add_option_function<std::string>(
            "--format",
            [&format](const std::string& word) {
                format = word == "json" ? EventFormat::json : EventFormat::text;
            },
            "Form of the " + std::string(what))
        ->check(CLI::IsMember({"text", "json"}))
        ->default_str("text");
}

CLI::Option& add_seconds(CLI::App& command, const char* name,
                         std::function<void(std::chrono::microseconds)> take,
                         const char* description) {
    return *command
                .add_option_function<double>(
                    name,
                    [take = std::move(take)](double seconds) {
                        take(std::chrono::microseconds(std::llround(seconds * 1e6)));
                    },
                    description)
                ->check(seconds_range);
}

void add_target(CLI::App& command, ControlTarget& target) {
    command.add_option("--bus", target.bus, "The bus: system, session or a D-Bus address")
        ->type_name("ADDRESS")
        ->capture_default_str();
    command
        .add_option("--control", target.name, "The bus name that the host was given with --control")
        ->type_name("NAME")
        ->check(CLI::Validator(check_bus_name, ""))
        ->capture_default_str();
}

CLI::Option& add_control_flag(CLI::App& command, std::optional<std::string>& name,
                              const char* description) {
    return *command.add_flag("--control", name, description)
                ->option_text("[=NAME]")
                ->transform(control_flag);
}

std::string check_bus_name(const std::string& name) {
    return common::is_ownable_name(name)
               ? std::string()
               : common::in_quotes(name) + " is no bus name that can be owned";
}

}  // namespace host
