#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "common/bus/bus.hpp"
#include "common/bus/control_client.hpp"
#include "common/cli/options.hpp"
#include "common/events/message.hpp"
#include "common/events/print_text.hpp"
#include "common/process/exit_code.hpp"
#include "common/text/glob.hpp"
#include "common/text/line_text.hpp"
#include "common/text/terminal.hpp"
#include "host/cli/described_ports.hpp"
#include "host/cli/options.hpp"
#include "host/control/bus_setting.hpp"
#include "host/graph/graph.hpp"
#include "host/value/bus_value.hpp"
#include "host/value/value_text.hpp"

namespace host {
namespace {

using common::check;
using common::ControlClient;
using common::ExitCode;
using common::Failure;
using Value = Fenwa::BlockConfiguration::Value;

struct SetOptions {
    ControlTarget target;
    std::string block;
    std::vector<std::string> changes;  ///< each "KEY=VALUE"
    bool rebuild = false;
    common::ColorChoice color =
        common::ColorChoice::automatic;  ///< as every command; nothing is printed
};

/// Ports of a running host.
struct ReadOptions {
    ControlTarget target;
    std::vector<std::string> ports;  ///< names and globs
    common::ColorChoice color = common::ColorChoice::automatic;
};

/// A port of a running host, and the value to write to it.
struct WriteOptions {
    ControlTarget target;
    std::string port;
    std::string value;
    common::ColorChoice color =
        common::ColorChoice::automatic;  ///< as every command; nothing is printed
};

PortValue ask_for(const ControlClient& host, const std::string& port) {
    const common::MessagePtr reply = host.call("Read", "s", port.c_str());
    PortValue value = value_from_variant(*reply);
    if (std::holds_alternative<std::monostate>(value))
        throw Failure(ExitCode::unavailable,
                      fmt::format("the host gives '{}' a value of an unknown type", port));
    return value;
}

bool holds_nul(const Value& value) {
    const auto in = [](const std::string& text) { return text.find('\0') != text.npos; };
    if (const auto* const text = std::get_if<std::string>(&value))
        return in(*text);
    const auto* const list = std::get_if<std::vector<std::string>>(&value);
    return list != nullptr && std::any_of(list->begin(), list->end(), in);
}

std::string value_text(const DescribedPort& port) {
    return port.value->is_null() ? unknown_value_text(port.type) : common::plain_text(*port.value);
}

/// "BLOCK.PORT = VALUE" for each port that one of the globs matches.
std::string lines_of(const common::Json& description, const std::vector<std::string>& globs,
                     const common::Palette& palette) {
    const std::vector<DescribedPort> ports =
        ports_in(description, {"inputs", "terminated_inputs", "outputs"});
    check_globs(globs, ports, "port");
    std::string lines;
    for (const DescribedPort& port : ports) {
        if (common::matches(port.name(), globs))
            lines += fmt::format("{} = {}{}{}\n", common::one_line(port.name()), palette.bold,
                                 common::one_line(value_text(port)), palette.reset);
    }
    return lines;
}

/// Prints the value of one port of a running host on stdout, or the names and values of several,
/// the values bold as in event lines.
/// @throws common::Failure as ControlClient; `usage` for a glob that no port matches.
void read_ports_of_host(const ReadOptions& options) {
    const ControlClient host = connect_to_host(options.target);
    const common::Palette palette(common::use_color(options.color, stdout));
    if (options.ports.size() == 1 && !common::is_glob(options.ports.front())) {
        const PortValue value = ask_for(host, options.ports.front());
        common::print_text(fmt::format("{}{}{}\n", palette.bold, to_text(value), palette.reset));
    } else {
        common::print_text(host.read_json("Describe", [&](const common::Json& description) {
            return lines_of(description, options.ports, palette);
        }));
    }
}

/// Writes a value, as the port's type asks for, to an input of a running host that nothing is
/// connected to.
/// @throws common::Failure as ControlClient; `usage` if the value is not of that type.
void write_port_of_host(const WriteOptions& options) {
    const ControlClient host = connect_to_host(options.target);
    const PortValue like = ask_for(host, options.port);
    const common::MessagePtr call = host.new_call("Write");
    ControlClient::append(call, "s", options.port.c_str());
    // The host refuses to write a timer source, whatever the value.
    const bool is_tick = std::holds_alternative<Fenwa::datatype_timersource>(like);
    check(append_variant(*call, is_tick ? like : from_text(options.value, like)),
          "cannot append a value");
    host.send(call);
}

/// Reads "KEY=VALUE".
/// @throws common::Failure (usage) for another form, or a value of a kind that no block takes.
Fenwa::BlockConfiguration::KeyValue parse_change(const std::string& text) {
    const std::size_t sign = text.find('=');
    if (sign == std::string::npos || sign == 0)
        throw Failure(ExitCode::usage, fmt::format("'{}' is not of the form KEY=VALUE", text));
    const std::string key = text.substr(0, sign);
    Value value = setting_from_text(key, text.substr(sign + 1));
    if (holds_nul(value))
        throw Failure(ExitCode::usage,
                      fmt::format("'{}' holds a NUL, which D-Bus does not carry", key));
    return {key, std::move(value)};
}

/// Changes settings of a block of a running host, all or none; prints its warnings.
/// @throws common::Failure as ControlClient; `usage` if a key is given twice, or none at all.
void set_block_of_host(const SetOptions& options) {
    if (options.changes.empty() && !options.rebuild)
        throw Failure(ExitCode::usage, "KEY=VALUE is required without --rebuild");
    SettingList changes;
    std::set<std::string> keys;
    for (const std::string& text : options.changes) {
        changes.push_back(parse_change(text));
        if (!keys.insert(changes.back().key()).second)
            throw Failure(ExitCode::usage,
                          fmt::format("'{}' is given twice", changes.back().key()));
    }
    const ControlClient host = connect_to_host(options.target);
    const common::MessagePtr call = host.new_call(options.rebuild ? "Rebuild" : "Reconfigure");
    ControlClient::append(call, "s", options.block.c_str());
    ControlClient::check_appended(append_settings(*call, changes));
    const common::MessagePtr reply = host.send(call);
    // The host may be of a version that returns nothing.
    if (sd_bus_message_has_signature(reply.get(), "as") <= 0)
        return;
    for (const std::string& warning : common::read_strings(*reply))
        common::print_message(common::Severity::warning, warning);
}

}  // namespace

common::Command read_command() {
    const auto options = std::make_shared<ReadOptions>();
    return {.name = "read",
            .help = "Prints the value of a port of a running host, or names and values of several",
            .arguments = {{.name = "PORT",
                           .help = "A port as the graph names it, BLOCK.PORT; or several, also "
                                   "with *, ? and []",
                           .take = common::into(options->ports),
                           .count = common::Option::Count::several,
                           .required = true}},
            .options = {target_bus_option(options->target), target_name_option(options->target),
                        common::color_option(options->color)},
            .run = [options] {
                read_ports_of_host(*options);
                return ExitCode::done;
            }};
}

common::Command write_command() {
    const auto options = std::make_shared<WriteOptions>();
    return {
        .name = "write",
        .help = "Writes a value to an input of a running host that nothing is connected to",
        .arguments = {{.name = "PORT",
                       .help = "A port as the graph names it, BLOCK.PORT",
                       .take = common::into(options->port),
                       .required = true},
                      {.name = "VALUE",
                       .help = "true, -7, 36.5, nan, inf …; -inf and -nan need a -- before them",
                       .take = common::into(options->value),
                       .required = true}},
        .options = {target_bus_option(options->target), target_name_option(options->target),
                    common::color_option(options->color)},
        .run = [options] {
            write_port_of_host(*options);
            return ExitCode::done;
        }};
}

common::Command set_command() {
    const auto options = std::make_shared<SetOptions>();
    return {.name = "set",
            .help = "Changes settings of a block of a running host",
            .arguments = {{.name = "BLOCK",
                           .help = "A block as the graph names it",
                           .take = common::into(options->block),
                           .required = true},
                          {.name = "KEY=VALUE",
                           .help = "A key and its new value as in a graph file; anything that is "
                                   "not a TOML value is taken as a string",
                           .take = common::into(options->changes),
                           .count = common::Option::Count::several}},
            .options = {{.name = "--rebuild",
                         .help = "Builds the block anew, also for keys that it reads only then",
                         .take = common::into(options->rebuild)},
                        target_bus_option(options->target),
                        target_name_option(options->target),
                        common::color_option(options->color)},
            .run = [options] {
                set_block_of_host(*options);
                return ExitCode::done;
            }};
}

}  // namespace host
