#include "host/control/service.hpp"

#include <fmt/core.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <utility>

#include "common/bus/callback.hpp"
#include "common/events/message.hpp"
#include "host/control/names.hpp"
#include "host/control/port_access.hpp"
#include "host/graph/block_json.hpp"
#include "host/runtime/graph_status.hpp"
#include "host/value/bus_value.hpp"

namespace host {
namespace {

using common::check;
using common::Json;
using common::new_reply;
using common::read_string;

Json to_json(const RunningGraph& graph, const OwnedNames& names) {
    Json blocks = Json::array();
    for (const BlockEntry& entry : graph.graph().blocks) {
        const BlockInstance& instance = *graph.find(entry.name);
        Json block = host::to_json(entry, instance.ports(), instance.settings());
        block["services"] = graph.calls() == nullptr ? std::vector<std::string>()
                                                     : graph.calls()->services(entry.name);
        block["status"] = status_json(graph, instance, names);
        blocks.push_back(std::move(block));
    }
    return {{"blocks", std::move(blocks)},
            {"connections", host::to_json(graph.graph().connections)}};
}

int answer(sd_bus_message& call, const std::vector<std::string>& texts) {
    const common::MessagePtr reply = new_reply(call);
    check(common::append_strings(*reply, texts), "cannot append texts");
    return sd_bus_send(nullptr, reply.get(), nullptr);
}

}  // namespace

// The policy of the bus decides who may call, as for every other name on it.
const sd_bus_vtable Control::vtable_[] = {
    SD_BUS_VTABLE_START(SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Read", SD_BUS_ARGS("s", port), SD_BUS_RESULT("v", value),
                            common::callback<&Control::read>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Write", SD_BUS_ARGS("s", port, "v", value), SD_BUS_NO_RESULT,
                            common::callback<&Control::write>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Reconfigure", SD_BUS_ARGS("s", block, "a{sv}", changes),
                            SD_BUS_RESULT("as", warnings), common::callback<&Control::reconfigure>,
                            SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Rebuild", SD_BUS_ARGS("s", block, "a{sv}", changes),
                            SD_BUS_RESULT("as", warnings), common::callback<&Control::rebuild>,
                            SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Describe", SD_BUS_NO_ARGS, SD_BUS_RESULT("s", description),
                            common::callback<&Control::describe>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Subscribe", SD_BUS_NO_ARGS, SD_BUS_NO_RESULT,
                            common::callback<&Control::subscribe>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_SIGNAL_WITH_ARGS("OutputChanged", SD_BUS_ARGS("s", port, "v", value), 0),
    SD_BUS_VTABLE_END,
};

Control::Control(RunningGraph& graph, Reconfigurer& reconfigurer, EventLoop& loop,
                 common::BusPtr bus)
    : graph_(graph), reconfigurer_(reconfigurer), bus_(std::move(bus)), names_(*bus_) {
    check(sd_bus_add_object_vtable(bus_.get(), object_.out(), control_path, control_interface,
                                   vtable_, this),
          "cannot export the control interface");
    check(sd_bus_track_new(bus_.get(), subscribers_.out(),
                           common::callback<&Control::on_no_subscriber>, this),
          "cannot follow clients");
    loop.attach(*bus_);
}

Control::~Control() {
    graph_.watch_outputs({});
}

int Control::read(sd_bus_message& call) {
    const PortValue value = read_port(graph_, read_string(call));
    const common::MessagePtr reply = new_reply(call);
    check(append_variant(*reply, value), "cannot append a value");
    return sd_bus_send(nullptr, reply.get(), nullptr);
}

int Control::write(sd_bus_message& call) {
    const std::string port = read_string(call);
    const WritableInput input = find_writable(graph_, port);
    const std::optional<PortValue> value = value_from_variant(call, input.datatype);
    if (!value)
        throw ControlError(
            wrong_type_error,
            fmt::format("'{}' takes {}, which is of the D-Bus type '{}'", port,
                        type_name(input.datatype), bus_type(default_value(input.datatype))));
    graph_.find(input.end.block)->write(input.end.port, *value);
    return sd_bus_reply_method_return(&call, "");
}

int Control::reconfigure(sd_bus_message& call) {
    const std::string block = read_string(call);
    return answer(call, reconfigurer_.change(block, settings_from_message(call)));
}

int Control::rebuild(sd_bus_message& call) {
    const std::string block = read_string(call);
    return answer(call, reconfigurer_.rebuild(block, settings_from_message(call)));
}

int Control::describe(sd_bus_message& call) {
    // The bus knows which services are there, and may take its time.
    names_.ask(
        [this, waiting = std::shared_ptr<sd_bus_message>(
                   sd_bus_message_ref(&call), sd_bus_message_unref)](const OwnedNames& names) {
            check(sd_bus_reply_method_return(waiting.get(), "s",
                                             common::json_ascii(to_json(graph_, names)).c_str()),
                  "cannot answer");
        });
    return 1;
}

int Control::subscribe(sd_bus_message& call) {
    const int r = sd_bus_track_add_sender(subscribers_.get(), &call);
    if (r == -ENXIO)
        return 1;  // the sender has left the bus already
    check(r, "cannot follow a client");
    graph_.watch_outputs(
        [this](const std::string& block, const std::string& port, const PortValue& value) {
            emit_output_changed(block + '.' + port, value);
        });
    return sd_bus_reply_method_return(&call, "");
}

void Control::emit_output_changed(const std::string& port, const PortValue& value) noexcept {
    // A value of an unknown datatype has no D-Bus type, and a lost bus has no watchers.
    if (bus_type(value) == nullptr || sd_bus_is_open(bus_.get()) <= 0)
        return;
    common::MessagePtr signal;
    int r = sd_bus_message_new_signal(bus_.get(), signal.out(), control_path, control_interface,
                                      "OutputChanged");
    if (r >= 0)
        r = sd_bus_message_append(signal.get(), "s", port.c_str());
    if (r >= 0)
        r = append_variant(*signal, value);
    if (r >= 0)
        r = sd_bus_send(bus_.get(), signal.get(), nullptr);
    if (r >= 0 || std::exchange(reported_lost_, true))
        return;
    common::print_message(
        common::Severity::warning,
        fmt::format("cannot emit OutputChanged for '{}'; watchers miss values: {}", port,
                    std::strerror(-r)));
}

}  // namespace host
