#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "common/bus/bus.hpp"
#include "common/process/exit_code.hpp"
#include "common/text/terminal.hpp"
#include "host/cli/options.hpp"
#include "host/control/bus_setting.hpp"
#include "host/control/client.hpp"
#include "host/graph/graph.hpp"
#include "host/output/standard_output.hpp"
#include "host/value/bus_value.hpp"
#include "host/value/value_text.hpp"

namespace host {
namespace {

using common::check;
using common::ExitCode;
using common::Failure;
using Value = Fenwa::BlockConfiguration::Value;

/// What `fenwa set` was asked for.
struct SetOptions {
    ControlTarget target;
    std::string block;
    std::vector<std::string> changes;  ///< each "KEY=VALUE"
    common::ColorChoice color =
        common::ColorChoice::automatic;  ///< as every command; nothing is printed
};

PortValue ask_for(const ControlClient& host, const std::string& port) {
    const common::MessagePtr call = host.new_call("Read");
    ControlClient::append(*call, port);
    const common::MessagePtr reply = host.send(call);
    PortValue value = value_from_variant(*reply);
    if (std::holds_alternative<std::monostate>(value))
        throw common::Failure(common::ExitCode::unavailable,
                              "the host gives '" + port + "' a value of an unknown type");
    return value;
}

bool holds_nul(const Value& value) {
    const auto in = [](const std::string& text) { return text.find('\0') != text.npos; };
    if (const auto* const text = std::get_if<std::string>(&value))
        return in(*text);
    const auto* const list = std::get_if<std::vector<std::string>>(&value);
    return list != nullptr && std::any_of(list->begin(), list->end(), in);
}

/// Prints the value of a port of a running host, "BLOCK.PORT", on stdout, bold as in event lines.
/// @throws common::Failure as ControlClient does.
common::ExitCode read_port_of_host(const ControlTarget& target, const std::string& port,
                                   common::ColorChoice color) {
    open_closed_streams();
    StandardOutput out([] {});
    const common::Palette palette(common::use_color(color, stdout));
    std::string line(palette.bold);
    line.append(to_text(ask_for(ControlClient(target), port))).append(palette.reset);
    out.write(line + '\n');
    return code_after(out, common::ExitCode::done);
}

/// Writes a value to an input of a running host that nothing is connected to.
/// @param value read as the port's type asks for, which the host is asked for first.
/// @throws common::Failure as ControlClient does; `usage` where the value is none of that type.
void write_port_of_host(const ControlTarget& target, const std::string& port,
                        const std::string& value) {
    const ControlClient host(target);
    const PortValue like = ask_for(host, port);
    const common::MessagePtr call = host.new_call("Write");
    ControlClient::append(*call, port);
    // The host says that a timer source cannot be written, whatever it is given.
    const bool is_tick = std::holds_alternative<Fenwa::datatype_timersource>(like);
    check(append_variant(*call, is_tick ? like : from_text(value, like)), "cannot append a value");
    (void)host.send(call);
}

/// Takes "KEY=VALUE" apart. The value is read as in a graph file, quotes and all; what is no value
/// there is a string as it stands.
/// @throws common::Failure (usage) where it is of another form, or of a kind that no block takes.
Fenwa::BlockConfiguration::KeyValue parse_change(const std::string& text) {
    const std::size_t sign = text.find('=');
    if (sign == std::string::npos || sign == 0)
        throw Failure(ExitCode::usage, "'" + text + "' is not of the form KEY=VALUE");
    const std::string key = text.substr(0, sign);
    Value value = setting_from_text(key, text.substr(sign + 1));
    if (holds_nul(value))
        throw Failure(ExitCode::usage, "'" + key + "' holds a NUL, which D-Bus does not carry");
    return {key, std::move(value)};
}

/// Changes settings of a block of a running host, all or none.
/// @throws common::Failure (usage) also where a key is given twice; else as ControlClient does.
void set_block_of_host(const SetOptions& options) {
    SettingList changes;
    std::set<std::string> keys;
    for (const std::string& text : options.changes) {
        changes.push_back(parse_change(text));
        if (!keys.insert(changes.back().key()).second)
            throw Failure(ExitCode::usage, "'" + changes.back().key() + "' is given twice");
    }
    const ControlClient host(options.target);
    const common::MessagePtr call = host.new_call("Reconfigure");
    ControlClient::append(*call, options.block);
    ControlClient::append(*call, changes);
    (void)host.send(call);
}

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

}  // namespace host
