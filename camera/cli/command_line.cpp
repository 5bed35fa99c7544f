#include "camera/cli/command_line.hpp"

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "camera/cli/client.hpp"
#include "camera/cli/names.hpp"
#include "camera/cli/run.hpp"
#include "common/cli/command_line.hpp"
#include "common/text/terminal.hpp"

namespace camera {
namespace {

using common::ExitCode;

constexpr const char* program_version = "fenwa-camera " FENWA_VERSION;

constexpr const char* service_names =
    "temperature, power-consumer, power-status, controls, overlay, video, init";

constexpr const char* exit_codes =
    "Exit codes: 0 done, a stop by signal included; 1 what the scenario expects has not come; 2 "
    "the command line or an order is wrong; 66 a file cannot be read; 69 the bus or the camera "
    "cannot be reached, a name cannot be had, the connection was lost, or the standard output "
    "takes "
    "nothing more; 70 an internal error; 78 the configuration or scenario is wrong; or that of a "
    "program that has failed.";

/// Everything that the command line can say, and what is to be done when it was read.
struct CommandLine {
    RunOptions run;
    std::string format = "text";
    std::string color = "auto";
    bool no_activation = false;
    std::string bus = "system";
    std::string name;
    std::string value;
    FaultOptions fault;
    bool clear = false;
    std::function<ExitCode()> command;
};

CLI::App* add_command(CLI::App& app, const char* name, const char* description) {
    CLI::App* command = app.add_subcommand(name, description);
    common::add_version(*command, program_version);
    return command;
}

void add_format(CLI::App& command, CommandLine& line) {
    command.add_option("--format", line.format, "Form of the lines")
        ->check(CLI::IsMember({"text", "json"}))
        ->capture_default_str();
}

Format format_of(const CommandLine& line) {
    return line.format == "json" ? Format::json : Format::text;
}

void check_children(const std::vector<std::vector<std::string>>& children) {
    for (const std::vector<std::string>& child : children) {
        if (child.empty())
            throw common::Failure(ExitCode::usage, "there is no program behind one of the '--'");
    }
}

void add_run(CLI::App& app, CommandLine& line) {
    CLI::App* run = add_command(app, "run", "Plays the camera until SIGINT, SIGTERM or SIGHUP");
    CLI::Option* bus = run->add_option("--bus", line.run.bus,
                                       "The bus to play on: system, session or a D-Bus address")
                           ->type_name("ADDRESS");
    CLI::Option* private_bus =
        run->add_option("--private-bus", line.run.socket_path,
                        "Starts a bus daemon for this camera alone, which listens at SOCKET or "
                        "in a temporary folder")
            ->expected(0, 1)
            ->type_name("[=SOCKET]")
            ->excludes(bus);
    run->add_option("--config", line.run.config, "The camera's configuration (TOML)")
        ->type_name("FILE");
    run->add_option("--scenario", line.run.scenario,
                    "Plays these timed steps (TOML), then ends; exit code 1 when an expectation "
                    "fails")
        ->type_name("FILE");
    run->add_option("--without", line.run.without,
                    "Services that are not there until they are started by order")
        ->type_name("SERVICE");
    run->add_flag("--no-activation", line.no_activation,
                  "Calls do not bring services up that are down");
    run->add_flag("--system", line.run.system_allowed,
                  "Allows to play on the machine's own system bus");
    run->footer(
        "Services: " + std::string(service_names) +
        ". A call brings each of them up but init, whose bus name is left to whoever has it.\n\n"
        "Behind each lone --, a program with its arguments: it runs on the camera's bus, which it "
        "finds where programs look for the system bus. The camera ends when one of them fails or "
        "all have ended, and they end with the camera.\n\n" +
        exit_codes);
    add_format(*run, line);
    run->add_option("--color", line.color, "Whether to use colours")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->capture_default_str();
    run->final_callback([&line, private_bus] {
        line.run.private_bus = private_bus->count() > 0;
        line.run.activation = !line.no_activation;
        line.run.format = format_of(line);
        line.run.color = common::color_choice(line.color);
        line.command = [&line] {
            check_children(line.run.children);
            return run_camera(line.run);
        };
    });
}

/// A verb that talks to a running camera.
CLI::App* add_verb(CLI::App& app, CommandLine& line, const char* name, const char* description,
                   const std::function<void()>& order) {
    CLI::App* verb = add_command(app, name, description);
    verb->add_option("--bus", line.bus, "The bus of the camera: system, session or a D-Bus address")
        ->type_name("ADDRESS")
        ->capture_default_str();
    verb->final_callback([&line, order] {
        line.command = [order] {
            order();
            return ExitCode::done;
        };
    });
    return verb;
}

void add_orders(CLI::App& app, CommandLine& line) {
    struct Order {
        const char* name;
        const char* description;
        const char* method;
        const char* argument;
        const char* meaning;
    };
    static constexpr Order orders[] = {
        {"start", "Brings a service up", "Start", "SERVICE", service_names},
        {"stop", "Takes a service down", "Stop", "SERVICE", service_names},
        {"restart", "Takes a service down and brings it up again", "Restart", "SERVICE",
         service_names},
        {"press", "Presses an on-screen button that a client has added", "Press", "BUTTON",
         "The name that the client gave it"},
    };
    CLI::App* set = add_verb(app, line, "set", "Sets a value, such as temperature.main to 71.5",
                             [&line] { set_value(line.bus, line.name, line.value); });
    set->add_option("NAME", line.name, "One of the values that show lists")->required();
    set->add_option("VALUE", line.value, "What it is to be; -inf goes behind --")->required();
    for (const Order& order : orders) {
        add_verb(app, line, order.name, order.description,
                 [&line, &order] { call(line.bus, order.method, line.name); })
            ->add_option(order.argument, line.name, order.meaning)
            ->required();
    }
}

void add_fail(CLI::App& app, CommandLine& line) {
    CLI::App* fail =
        add_verb(app, line, "fail", "Makes a method, signal or property go wrong", [&line] {
            if (line.clear)
                call(line.bus, "ClearFault", line.fault.member);
            else
                set_fault(line.bus, line.fault);
        });
    fail->add_option("MEMBER", line.fault.member, "A method, signal or property, or SERVICE.MEMBER")
        ->required();
    CLI::Option* clear = fail->add_flag("--clear", line.clear,
                                        "Lets it work again; goes with no other option of fail");
    FaultOptions& fault = line.fault;
    CLI::Option* probability =
        fail->add_option("--probability", fault.probability,
                         "Hits a message with this probability, above 0 and at most 1")
            ->check(common::decimal_number);
    CLI::Option* const others[] = {
        fail->add_option("--error", fault.error, "Answers with this D-Bus error")
            ->type_name("NAME"),
        fail->add_option("--delay", fault.delay, "Sends it this many milliseconds later")
            ->type_name("MS")
            ->transform(common::whole_number),
        fail->add_flag("--malformed", fault.malformed, "Sends it with a wrong signature or type"),
        fail->add_flag("--silent", fault.silent, "Does not send it at all"),
        fail->add_flag("--drop", fault.drop, "Lets the service leave the bus in place of sending"),
        fail->add_option("--times", fault.times, "For the next N only; without, until cleared")
            ->type_name("N")
            ->transform(common::whole_number),
        fail->add_option("--seed", fault.seed,
                         "The same seed hits the same messages; goes with --probability")
            ->type_name("S")
            ->transform(common::whole_number)
            ->needs(probability),
        probability->type_name("P"),
    };
    for (CLI::Option* other : others)
        clear->excludes(other);
}

/// Takes each `-- PROGRAM ARGUMENT…` off a command line that begins with `run`: options of a
/// program are not ours, and an option of ours that may take several words must not take it for
/// one. With nothing at all behind a `--` there is no program.
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

}  // namespace

int main_program(int argc, char** argv) {
    CLI::App app{"Plays the services of a camera on D-Bus, for blocks that have no camera",
                 "fenwa-camera"};
    CommandLine line;
    line.run.children = take_children(argc, argv);
    common::prepare_program(app, program_version, exit_codes);
    add_run(app, line);
    add_orders(app, line);
    add_fail(app, line);
    add_format(*add_verb(app, line, "show", "Shows the state of the camera",
                         [&line] { show_camera(line.bus, format_of(line)); }),
               line);
    // What service files run; no command for people, so it is in no help.
    CLI::App* activate = app.add_subcommand("activate", "Brings a service up for the bus daemon");
    activate->group("");
    activate->add_option("SERVICE", line.name)->required();
    activate->final_callback(
        [&line] { line.command = [&line] { return activate_service(line.name); }; });
    // What shell completion asks, likewise.
    CLI::App* names =
        add_verb(app, line, "names", "List names", [&line] { print_names(line.bus, line.name); });
    names->group("");
    names->add_option("KIND", line.name)
        ->check(CLI::IsMember({"services", "members", "values"}))
        ->required();
    return common::run_command_line(app, argc, argv, [&line] { return line.command(); });
}

}  // namespace camera
