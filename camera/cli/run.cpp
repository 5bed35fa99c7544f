#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "camera/cli/commands.hpp"
#include "camera/cli/session.hpp"
#include "common/cli/options.hpp"

namespace camera {

using common::ExitCode;
using common::Failure;

std::vector<std::vector<std::string>> take_children(int& argc, char** argv) {
    if (argc < 2 || std::string_view(argv[1]) != "run")
        return {};
    const auto is_dashes = [](const char* word) { return std::string_view(word) == "--"; };
    char** const end = argv + argc;
    char** const first = std::find_if(argv, end, is_dashes);
    argc = static_cast<int>(first - argv);
    if (end - first <= 1)
        return {};
    std::vector<std::vector<std::string>> children;
    for (char** dashes = first; dashes != end;) {
        char** const next = std::find_if(dashes + 1, end, is_dashes);
        children.emplace_back(dashes + 1, next);
        dashes = next;
    }
    return children;
}

common::Command run_command(std::vector<std::vector<std::string>> children) {
    const auto options = std::make_shared<RunOptions>();
    options->children = std::move(children);
    common::Option bus = common::bus_option("The bus to play on", options->bus);
    bus.excludes = {"--private-bus"};
    return {.name = "run",
            .help = "Plays the camera until SIGINT, SIGTERM or SIGHUP",
            .options = {bus,
                        {.name = "--private-bus",
                         .value = "[=SOCKET]",
                         .help = "Starts a bus daemon for this camera alone, which listens at "
                                 "SOCKET or in a temporary folder",
                         .take =
                             [options](const std::string& socket) {
                                 options->private_bus = true;
                                 options->socket_path = socket;
                                 return std::string();
                             }},
                        {.name = "--config",
                         .value = "FILE",
                         .help = "The camera's configuration (TOML)",
                         .take = common::into(options->config)},
                        {.name = "--scenario",
                         .value = "FILE",
                         .help = "Plays these timed steps (TOML), then ends; exit code 1 when an "
                                 "expectation fails",
                         .take = common::into(options->scenario)},
                        {.name = "--report",
                         .value = "FILE",
                         .help = "Writes the results of the scenario's expectations (JUnit XML)",
                         .take = common::into(options->report),
                         .needs = "--scenario"},
                        {.name = "--without",
                         .value = "SERVICE",
                         .help = "Services that are not there until a command starts them",
                         .take = common::into(options->without),
                         .count = common::Option::Count::several},
                        {.name = "--no-activation",
                         .help = "Calls do not bring services up that are down",
                         .take = common::into(options->no_activation)},
                        {.name = "--system",
                         .help = "Allows to play on the machine's own system bus",
                         .take = common::into(options->system_allowed)},
                        {.name = "--verbose",
                         .help = "Text has a line for each call, answer and signal too",
                         .take = common::into(options->verbose)},
                        common::format_option("the lines", options->format),
                        common::timestamps_option(options->timestamps),
                        common::color_option(options->color)},
            .footer =
                fmt::format("Services: {}. A call brings each of them up but init, whose bus name "
                            "stays with its owner.\n\n"
                            "After each lone --, a program with its arguments: it runs on the "
                            "camera's bus, which it finds where programs look for the system bus. "
                            "Its lines come with its name in front, or with --format json as they "
                            "are. The camera ends when one of them fails or all have ended, and "
                            "they end with the camera.\n\n",
                            service_names),
            .run = [options] {
                if (std::ranges::any_of(options->children,
                                        [](const auto& child) { return child.empty(); }))
                    throw Failure(ExitCode::usage, "a '--' has no program after it");
                return run_camera(*options);
            }};
}

}  // namespace camera
