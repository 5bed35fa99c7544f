#include "host/control_command_line.hpp"

#include "host/port_commands.hpp"

namespace host {

using tool::ExitCode;

namespace {

std::string check_bus_name(const std::string& name) {
    return tool::is_ownable_name(name) ? std::string()
                                       : "'" + name + "' is no bus name that can be owned";
}

}  // namespace

const CLI::Validator control_flag(
    [](std::string& name) {
        // What CLI11 gives a flag without a value.
        if (name == "true")
            name = control_name;
        return check_bus_name(name);
    },
    "");

ControlCommands::ControlCommands(CLI::App& app, const std::string& version)
    : read_(&add(app, version, "read", "Prints the value of a port of a running host")),
      write_(&add(app, version, "write",
                  "Writes a value to an input of a running host that nothing is connected to")),
      watch_(&add(app, version, "watch",
                  "Prints each new value of a running host's outputs until SIGINT or SIGTERM")) {
    const char* const form = "A port as the graph names it, BLOCK.PORT";
    read_->add_option("PORT", port_, form)->required();
    write_->add_option("PORT", port_, form)->required();
    write_->add_option("VALUE", value_, "true, -7, 36.5, nan, inf …; -inf and -nan go behind --")
        ->required();
    watch_->add_option("--format", format_, "Event lines: text or json")
        ->check(CLI::IsMember({"text", "json"}))
        ->capture_default_str();
    watch_->add_option("--color", color_, "Colours: auto, always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->capture_default_str();
}

CLI::App& ControlCommands::add(CLI::App& app, const std::string& version, const char* name,
                               const char* description) {
    CLI::App& command = *app.add_subcommand(name, description);
    command.set_version_flag("--version", version);
    command.add_option("--bus", options_.target.bus, "\"system\", \"session\" or a D-Bus address")
        ->type_name("ADDRESS")
        ->capture_default_str();
    command
        .add_option("--control", options_.target.name, "The name that the host was given for it")
        ->type_name("NAME")
        ->check(CLI::Validator(check_bus_name, ""))
        ->capture_default_str();
    return command;
}

std::optional<ExitCode> ControlCommands::run() {
    if (read_->parsed())
        return read_port_of_host(options_.target, port_);
    if (write_->parsed()) {
        write_port_of_host(options_.target, port_, value_);
        return ExitCode::done;
    }
    if (!watch_->parsed())
        return std::nullopt;
    options_.format = format_ == "json" ? EventFormat::json : EventFormat::text;
    options_.color = tool::color_choice(color_);
    return watch_host(options_);
}

}  // namespace host
