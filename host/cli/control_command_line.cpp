#include <memory>

#include "host/cli/control.hpp"
#include "host/cli/options.hpp"
#include "host/cli/set.hpp"
#include "host/cli/watch.hpp"

namespace host {
namespace {

/// A port of a running host, and what is to be done with it.
struct PortOptions {
    ControlTarget target;
    std::string port;
    std::string value;
    common::ColorChoice color = common::ColorChoice::automatic;
};

CLI::App& add_port_command(CLI::App& program, const char* name, const char* description,
                           PortOptions& options) {
    CLI::App& command = add_command(program, name, description);
    add_target(command, options.target);
    add_color(command, options.color);
    command.add_option("PORT", options.port, "A port as the graph names it, BLOCK.PORT")
        ->required();
    return command;
}

}  // namespace

Command add_read_command(CLI::App& program) {
    const auto options = std::make_shared<PortOptions>();
    CLI::App& read =
        add_port_command(program, "read", "Prints the value of a port of a running host", *options);
    return {&read, [options] {
                return read_port_of_host(options->target, options->port, options->color);
            }};
}

Command add_write_command(CLI::App& program) {
    const auto options = std::make_shared<PortOptions>();
    CLI::App& write = add_port_command(
        program, "write",
        "Writes a value to an input of a running host that nothing is connected to", *options);
    write
        .add_option("VALUE", options->value,
                    "true, -7, 36.5, nan, inf …; -inf and -nan go behind --")
        ->required();
    return {&write, [options] {
                write_port_of_host(options->target, options->port, options->value);
                return common::ExitCode::done;
            }};
}

Command add_set_command(CLI::App& program) {
    const auto options = std::make_shared<SetOptions>();
    CLI::App& set = add_command(program, "set", "Changes settings of a block of a running host");
    add_target(set, options->target);
    add_color(set, options->color);
    set.add_option("BLOCK", options->block, "A block as the graph names it")->required();
    set.add_option("KEY=VALUE", options->changes,
                   "A key and its new value as in a graph file; what is no value there is a string")
        ->required();
    return {&set, [options] {
                set_block_of_host(*options);
                return common::ExitCode::done;
            }};
}

Command add_watch_command(CLI::App& program) {
    const auto options = std::make_shared<WatchOptions>();
    CLI::App& watch =
        add_command(program, "watch",
                    "Prints each new value of a running host's outputs until SIGINT or SIGTERM");
    add_target(watch, options->target);
    add_format(watch, options->format);
    add_color(watch, options->color);
    return {&watch, [options] { return watch_host(*options); }};
}

}  // namespace host
