#include "host/control/client.hpp"

#include <string_view>

#include "common/bus/out.hpp"
#include "common/process/exit_code.hpp"

namespace host {
namespace {

using common::check;
using common::ExitCode;
using common::Failure;

/// How long a command waits for a bus before it calls it absent, as long as for a reply.
constexpr std::chrono::seconds patience{25};

void check_appended(int r) {
    if (r == -EINVAL)
        throw Failure(ExitCode::usage, "the arguments are not valid UTF-8");
    check(r, "cannot append an argument");
}

}  // namespace

ControlClient::ControlClient(ControlTarget target)
    : target_(std::move(target)), bus_(common::open_bus(target_.bus, patience)) {}

common::MessagePtr ControlClient::new_call(const char* method) const {
    common::MessagePtr call;
    check(sd_bus_message_new_method_call(bus_.get(), common::out(call), target_.name.c_str(),
                                         control_path, control_interface, method),
          "cannot make a call");
    // No daemon should look for a host to start.
    check(sd_bus_message_set_auto_start(call.get(), 0), "cannot make a call");
    return call;
}

void ControlClient::append(sd_bus_message& call, const std::string& text) {
    check_appended(sd_bus_message_append(&call, "s", text.c_str()));
}

void ControlClient::append(sd_bus_message& call, const SettingList& settings) {
    check_appended(append_settings(call, settings));
}

common::MessagePtr ControlClient::send(const common::MessagePtr& call) const {
    common::BusError error;
    common::MessagePtr reply;
    const int r = sd_bus_call(bus_.get(), call.get(), 0, &error, common::out(reply));
    if (r < 0)
        fail(error, r);
    return reply;
}

common::Json ControlClient::describe() const {
    const common::MessagePtr reply = send(new_call("Describe"));
    try {
        return common::parse_json(common::read_string(*reply), "the answer");
    } catch (const common::JsonError&) {
        fail_unknown_form();
    }
}

void ControlClient::fail_unknown_form() {
    throw Failure(ExitCode::unavailable, "the host describes itself in a form that is unknown");
}

void ControlClient::fail(const common::BusError& error, int r) const {
    const std::string_view name = error.error.name == nullptr ? "" : error.error.name;
    if (name == block_threw_error)
        throw Failure(ExitCode::software,
                      error.error.message == nullptr ? "" : error.error.message);
    if (name.starts_with(control_error_prefix))
        throw Failure(ExitCode::usage, error.error.message == nullptr ? "" : error.error.message);
    if (name == SD_BUS_ERROR_SERVICE_UNKNOWN || name == SD_BUS_ERROR_NAME_HAS_NO_OWNER)
        throw Failure(ExitCode::unavailable,
                      "no host owns '" + target_.name + "' on the bus at '" + target_.bus +
                          "'; start one with 'fenwa run GRAPH --control', or name its bus with "
                          "--bus");
    throw Failure(ExitCode::unavailable, "the host does not answer: " + error.text(r));
}

}  // namespace host
