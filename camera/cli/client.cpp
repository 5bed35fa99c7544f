#include "camera/cli/client.hpp"

#include <cstdlib>
#include <string_view>
#include <system_error>

#include "camera/bus/names.hpp"
#include "camera/camera/control.hpp"
#include "camera/cli/show_text.hpp"
#include "camera/service/connection.hpp"
#include "common/bus/bus.hpp"
#include "common/bus/out.hpp"
#include "common/events/print_text.hpp"
#include "common/text/json_node.hpp"
#include "common/text/line_text.hpp"

namespace camera {
namespace {

using common::check;
using common::ExitCode;
using common::Failure;
using common::MessagePtr;

/// The camera on the other end.
class Client {
  public:
    explicit Client(std::string address)
        : address_(std::move(address)), bus_(common::open_bus(address_, bus_patience)) {}

    [[nodiscard]] MessagePtr new_order(const char* order) const {
        MessagePtr message;
        check(sd_bus_message_new_method_call(bus_.get(), common::out(message), camera_control.name,
                                             camera_control.path, camera_control.interface, order),
              "sd_bus_message_new_method_call");
        // No daemon should look for a camera to start.
        check(sd_bus_message_set_auto_start(message.get(), 0), "sd_bus_message_set_auto_start");
        return message;
    }

    MessagePtr give(const MessagePtr& order) const {
        common::BusError error;
        MessagePtr reply;
        const int r = sd_bus_call(bus_.get(), order.get(), 0, &error, common::out(reply));
        if (r < 0)
            report(error, r);
        return reply;
    }

    template <class... Arguments>
    MessagePtr give(const char* order, const char* types, Arguments... arguments) const {
        const MessagePtr message = new_order(order);
        const int r = sd_bus_message_append(message.get(), types, arguments...);
        if (r == -EINVAL)
            throw Failure(ExitCode::usage, "the arguments are not valid UTF-8");
        check(r, "sd_bus_message_append");
        return give(message);
    }

  private:
    [[noreturn]] void report(const common::BusError& error, int r) const {
        const std::string_view name = error.error.name == nullptr ? "" : error.error.name;
        const std::string text = error.error.message == nullptr ? "" : error.error.message;
        if (name == refused_error)
            throw Failure(ExitCode::usage, text);
        if (name == unavailable_error)
            throw Failure(ExitCode::unavailable, text);
        if (name == SD_BUS_ERROR_SERVICE_UNKNOWN || name == SD_BUS_ERROR_NAME_HAS_NO_OWNER)
            throw Failure(ExitCode::unavailable,
                          "no camera plays on the bus at '" + address_ +
                              "'; start one with 'fenwa-camera run', or name its bus with --bus");
        throw Failure(ExitCode::unavailable, "the camera does not answer: " + error.text(r));
    }

    std::string address_;
    common::BusPtr bus_;
};

template <class T>
void append_option(sd_bus_message* message, const char* key, const char* type, T value) {
    const int r = sd_bus_message_append(message, "{sv}", key, type, value);
    if (r == -EINVAL)
        throw Failure(ExitCode::usage, "the arguments are not valid UTF-8");
    check(r, "sd_bus_message_append");
}

void append_flag(sd_bus_message* message, const char* key, bool value) {
    if (value)
        append_option(message, key, "b", 1);
}

/// The camera may be another version of ours, or no camera at all.
void check_state(const common::JsonNode<>& state) {
    (void)state.member("bus").string();
    for (const auto& service : state.member("services").elements()) {
        for (const char* text : {"name", "state", "unique_name"})
            (void)service.member(text).string();
        (void)service.member("activatable").boolean();
        for (const auto& name : service.member("bus_names").elements())
            (void)name.string();
        for (const auto& registration : service.member("registrations").elements()) {
            (void)registration.member("id");
            for (const char* text : {"client", "what"})
                (void)registration.member(text).string();
        }
    }
    (void)state.member("values").object();
    for (const auto& fault : state.member("faults").elements()) {
        for (const char* text : {"member", "what"})
            (void)fault.member(text).string();
    }
}

}  // namespace

void call(const std::string& bus, const char* order, const std::string& argument) {
    (void)Client(bus).give(order, "s", argument.c_str());
}

void set_value(const std::string& bus, const std::string& name, const std::string& value) {
    (void)Client(bus).give("Set", "ss", name.c_str(), value.c_str());
}

void set_fault(const std::string& bus, const FaultOptions& options) {
    const Client client(bus);
    const MessagePtr order = client.new_order("Fail");
    sd_bus_message* message = order.get();
    check(sd_bus_message_open_container(message, 'a', "{sv}"), "sd_bus_message_open_container");
    append_option(message, "member", "s", options.member.c_str());
    if (options.error)
        append_option(message, "error", "s", options.error->c_str());
    if (options.delay)
        append_option(message, "delay", "x", *options.delay);
    if (options.times)
        append_option(message, "times", "x", *options.times);
    if (options.probability)
        append_option(message, "probability", "d", *options.probability);
    if (options.seed)
        append_option(message, "seed", "x", *options.seed);
    append_flag(message, "malformed", options.malformed);
    append_flag(message, "silent", options.silent);
    append_flag(message, "drop", options.drop);
    check(sd_bus_message_close_container(message), "sd_bus_message_close_container");
    (void)client.give(order);
}

common::Json camera_state(const std::string& bus) {
    const MessagePtr reply = Client(bus).give("Show", "");
    try {
        const std::string what = "the answer";
        common::Json state = common::parse_json(common::read_string(*reply), what);
        check_state({state, what});
        return state;
    } catch (const std::system_error&) {
        throw Failure(ExitCode::unavailable,
                      "the camera's answer makes no sense: it is not a string");
    } catch (const common::JsonError& error) {
        throw Failure(ExitCode::unavailable,
                      std::string("the camera's answer makes no sense: ") + error.what());
    }
}

void show_camera(const std::string& bus, Format format) {
    const common::Json state = camera_state(bus);
    common::print_text(format == Format::json ? common::json_line(state) + '\n' : show_text(state));
}

ExitCode activate_service(const std::string& service) {
    const char* address = std::getenv("DBUS_STARTER_ADDRESS");
    if (address == nullptr)
        throw Failure(ExitCode::usage,
                      "'activate' is for the bus daemon to run: "
                      "DBUS_STARTER_ADDRESS is not set");
    try {
        call(address, "Activate", service);
    } catch (const Failure& failure) {
        // Seen by whoever reads the daemon's log.
        common::print_error_line(std::string("fenwa-camera: ") + failure.what());
        return static_cast<ExitCode>(1);
    }
    return ExitCode::done;
}

}  // namespace camera
