#include "host/control/service.hpp"

#include <cstring>
#include <iostream>

#include "common/bus/callback.hpp"
#include "common/bus/out.hpp"
#include "host/control/graph_json.hpp"
#include "host/control/names.hpp"
#include "host/control/port_access.hpp"
#include "host/value/bus_value.hpp"

namespace host {
namespace {

using common::check;
using common::new_reply;
using common::read_string;

}  // namespace

// Who may call is the bus's policy to say, as for every other name on it.
const sd_bus_vtable Control::vtable_[] = {
    SD_BUS_VTABLE_START(SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Read", SD_BUS_ARGS("s", port), SD_BUS_RESULT("v", value),
                            common::callback<&Control::read>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Write", SD_BUS_ARGS("s", port, "v", value), SD_BUS_NO_RESULT,
                            common::callback<&Control::write>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Reconfigure", SD_BUS_ARGS("s", block, "a{sv}", changes),
                            SD_BUS_NO_RESULT, common::callback<&Control::reconfigure>,
                            SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Describe", SD_BUS_NO_ARGS, SD_BUS_RESULT("s", description),
                            common::callback<&Control::describe>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_SIGNAL_WITH_ARGS("OutputChanged", SD_BUS_ARGS("s", port, "v", value), 0),
    SD_BUS_VTABLE_END,
};

Control::Control(RunningGraph& graph, Reconfigurer& settings, EventLoop& loop, common::BusPtr bus)
    : graph_(graph), settings_(settings), bus_(std::move(bus)) {
    check(sd_bus_add_object_vtable(bus_.get(), common::out(object_), control_path,
                                   control_interface, vtable_, this),
          "cannot export the control interface");
    loop.attach(*bus_);
    graph_.watch_outputs([this](const std::string& block, const std::string& port,
                                const PortValue& value) { tell(block + '.' + port, value); });
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
    const std::optional<PortValue> value = read_variant(call, input.datatype);
    if (!value)
        throw ControlError(wrong_type_error, "'" + port + "' takes " + type_name(input.datatype) +
                                                 ", which is of the D-Bus type '" +
                                                 bus_type(default_value(input.datatype)) + "'");
    graph_.write(input.end, *value);
    return sd_bus_reply_method_return(&call, "");
}

int Control::reconfigure(sd_bus_message& call) {
    const std::string block = read_string(call);
    settings_.change(block, read_settings(call));
    return sd_bus_reply_method_return(&call, "");
}

int Control::describe(sd_bus_message& call) {
    return sd_bus_reply_method_return(&call, "s",
                                      common::json_ascii(host::describe(graph_)).c_str());
}

void Control::tell(const std::string& port, const PortValue& value) noexcept {
    // Nothing can be said of a value of an unknown datatype, and nobody hears of one on a lost bus.
    if (bus_type(value) == nullptr || sd_bus_is_open(bus_.get()) <= 0)
        return;
    common::MessagePtr signal;
    int r = sd_bus_message_new_signal(bus_.get(), common::out(signal), control_path,
                                      control_interface, "OutputChanged");
    if (r >= 0)
        r = sd_bus_message_append(signal.get(), "s", port.c_str());
    if (r >= 0)
        r = append_variant(*signal, value);
    if (r >= 0)
        r = sd_bus_send(bus_.get(), signal.get(), nullptr);
    if (r >= 0 || said_lost_)
        return;
    said_lost_ = true;
    common::print_error_line("fenwa: cannot emit OutputChanged for '" + port +
                             "'; watchers miss values: " + std::strerror(-r));
}

}  // namespace host
