// The arguments of a host's control interface, which any client may send: names of blocks and
// ports, settings, and values of inputs. What was read is written and read again: it is the same.

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <optional>
#include <system_error>

#include "host/control/bus_setting.hpp"
#include "host/control/names.hpp"
#include "host/control/port_access.hpp"
#include "host/graph/diff.hpp"
#include "host/value/bus_value.hpp"
#include "tests/fuzz/values.hpp"
#include "tests/support/bus_messages.hpp"

namespace {

using support::Message;
using support::Messages;

Message call_with(Messages& messages, const Messages::Append& append) {
    return messages.call_with(host::control_path, host::control_interface, "Reconfigure", append);
}

Message any_call(Messages& messages, const char* likely_types, fuzz::Input& input) {
    return call_with(messages, [&](sd_bus_message* message) {
        fuzz::append_values(message, input.ConsumeBool() ? likely_types : fuzz::signature(input),
                            input);
    });
}

/// Refuses arguments as the host does. @returns nothing for them.
template <class Read>
auto read_or_refuse(Read read) -> std::optional<decltype(read())> {
    try {
        return read();
    } catch (const host::ControlError&) {
    } catch (const std::system_error&) {
    }
    return std::nullopt;
}

void read_name(fuzz::Input& input) {
    static const host::Graph graph = [] {
        host::Graph some;
        for (const char* name : {"reader", "guard", "main", "Grad °C"})
            some.blocks.emplace_back().name = name;
        return some;
    }();
    const std::string name = fuzz::text(input);
    if (const auto port = host::parse_endpoint(name); port && port->text() != name)
        std::abort();
    try {
        host::refuse_unknown_block(graph, name);
    } catch (const host::ControlError&) {
    }
}

void read_settings(Messages& messages, fuzz::Input& input) {
    const auto settings = read_or_refuse(
        [&] { return host::settings_from_message(*any_call(messages, "a{sv}", input)); });
    if (!settings)
        return;
    const host::SettingList again =
        host::settings_from_message(*call_with(messages, [&](sd_bus_message* message) {
            support::check(host::append_settings(*message, *settings));
        }));
    if (again.size() != settings->size())
        std::abort();
    for (std::size_t i = 0; i < again.size(); ++i) {
        if (again[i].key() != (*settings)[i].key() ||
            !host::same_value(again[i].value(), (*settings)[i].value()))
            std::abort();
    }
}

void read_value(Messages& messages, fuzz::Input& input, const Fenwa::Datatype& datatype) {
    const auto read = read_or_refuse(
        [&] { return host::value_from_variant(*any_call(messages, "v", input), datatype); });
    if (!read || !*read)
        return;
    const host::PortValue& value = **read;
    const Message again = call_with(messages, [&](sd_bus_message* message) {
        support::check(host::append_variant(*message, value));
    });
    const auto same = host::value_from_variant(*again, datatype);
    if (!same || common::json_line(host::to_json(*same)) != common::json_line(host::to_json(value)))
        std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    Messages messages;
    read_name(input);
    read_settings(messages, input);
    for (const std::string& path : host::known_datatypes())
        read_value(messages, input, Fenwa::Datatype(path));
    return 0;
}
