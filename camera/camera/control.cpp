#include "camera/camera/control.hpp"

#include <chrono>
#include <nlohmann/json.hpp>

#include "camera/bus/message_json.hpp"
#include "camera/bus/names.hpp"
#include "common/bus/callback.hpp"
#include "common/process/exit_code.hpp"

namespace camera {
namespace {

using common::check;
using common::read_string;

}  // namespace

// Everybody may call: access is up to the bus policy, as for every other name.
const sd_bus_vtable Control::vtable_[] = {
    SD_BUS_VTABLE_START(SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Set", SD_BUS_ARGS("s", name, "s", value), SD_BUS_NO_RESULT,
                            common::callback<&Control::set>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Start", SD_BUS_ARGS("s", service), SD_BUS_NO_RESULT,
                            common::callback<&Control::start>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Stop", SD_BUS_ARGS("s", service), SD_BUS_NO_RESULT,
                            common::callback<&Control::stop>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Restart", SD_BUS_ARGS("s", service), SD_BUS_NO_RESULT,
                            common::callback<&Control::restart>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Activate", SD_BUS_ARGS("s", service), SD_BUS_NO_RESULT,
                            common::callback<&Control::activate>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Fail", SD_BUS_ARGS("a{sv}", rule), SD_BUS_NO_RESULT,
                            common::callback<&Control::fail>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("ClearFault", SD_BUS_ARGS("s", member), SD_BUS_NO_RESULT,
                            common::callback<&Control::clear_fault>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Press", SD_BUS_ARGS("s", button), SD_BUS_NO_RESULT,
                            common::callback<&Control::press>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Show", SD_BUS_NO_ARGS, SD_BUS_RESULT("s", state),
                            common::callback<&Control::show>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

Control::Control(Camera& camera, sd_event& event, const std::string& address,
                 std::function<void()> lost)
    : camera_(camera), connection_(event, address, std::move(lost)) {
    check(sd_bus_add_object_vtable(&connection_.bus(), object_.out(), camera_control.path,
                                   camera_control.interface, vtable_, this),
          "sd_bus_add_object_vtable");
    common::own_name(connection_.bus(), camera_control.name);
}

std::set<std::string> Control::startable_names() const {
    common::MessagePtr call;
    check(sd_bus_message_new_method_call(&connection_.bus(), call.out(), "org.freedesktop.DBus",
                                         "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                         "ListActivatableNames"),
          "sd_bus_message_new_method_call");
    common::MessagePtr reply;
    const int called =
        sd_bus_call(&connection_.bus(), call.get(), std::chrono::microseconds(bus_timeout).count(),
                    nullptr, reply.out());
    if (called < 0 || sd_bus_message_has_signature(reply.get(), "as") <= 0)
        return {};
    return body_json(*reply).at(0).get<std::set<std::string>>();
}

int Control::handle(sd_bus_message& call, const std::function<void()>& command) {
    try {
        command();
    } catch (const CommandError& error) {
        return sd_bus_reply_method_errorf(&call, refused_error, "%s", error.what());
    } catch (const common::Failure& failure) {
        return sd_bus_reply_method_errorf(&call, unavailable_error, "%s", failure.what());
    }
    return sd_bus_reply_method_return(&call, "");
}

int Control::handle(sd_bus_message& call, void (Camera::*command)(const std::string&)) {
    const std::string argument = read_string(call);
    return handle(call, [&] { (camera_.*command)(argument); });
}

int Control::set(sd_bus_message& call) {
    const std::string name = read_string(call);
    const std::string value = read_string(call);
    return handle(call, [&] { camera_.set(name, value); });
}

int Control::start(sd_bus_message& call) {
    return handle(call, &Camera::start);
}

int Control::stop(sd_bus_message& call) {
    return handle(call, &Camera::stop);
}

int Control::restart(sd_bus_message& call) {
    return handle(call, &Camera::restart);
}

int Control::activate(sd_bus_message& call) {
    return handle(call, &Camera::activate);
}

int Control::fail(sd_bus_message& call) {
    return handle(call, [&] {
        camera_.fail(fault_rule_from(
            body_json(call).at(0),
            [](const std::string& /*key*/, const CommandError& mistake) { throw mistake; }));
    });
}

int Control::clear_fault(sd_bus_message& call) {
    return handle(call, &Camera::clear_fault);
}

int Control::press(sd_bus_message& call) {
    return handle(call, &Camera::press);
}

int Control::show(sd_bus_message& call) {
    return sd_bus_reply_method_return(&call, "s", common::json_line(camera_.show()).c_str());
}

}  // namespace camera
