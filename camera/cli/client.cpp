#include <fmt/format.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "camera/bus/names.hpp"
#include "camera/camera/control.hpp"
#include "camera/cli/commands.hpp"
#include "camera/cli/show_text.hpp"
#include "common/bus/control_client.hpp"
#include "common/cli/options.hpp"
#include "common/events/event_lines.hpp"
#include "common/events/message.hpp"
#include "common/events/print_text.hpp"
#include "common/text/json_node.hpp"

namespace camera {
namespace {

using common::Command;
using common::ControlClient;
using common::ExitCode;
using common::Failure;
using common::Option;

ControlClient connect_to_camera(const std::string& bus) {
    return ControlClient(
        {.bus = bus,
         .name = camera_control.name,
         .path = camera_control.path,
         .interface = camera_control.interface,
         .noun = "the camera",
         .absent = fmt::format("no camera plays on the bus at '{}'; start one with 'fenwa-camera "
                               "run', or name its bus with --bus",
                               bus),
         .errors = {{refused_error, ExitCode::usage}, {unavailable_error, ExitCode::unavailable}}});
}

/// Names of values, services and buttons for a camera.
struct ClientOptions {
    std::string bus = "system";
    std::string name;
    std::string value;
};

Option camera_bus_option(std::string& bus) {
    return common::bus_option("The bus of the camera", bus);
}

/// A command whose argument goes to a method of the camera.
Command name_command(const char* name, const char* help, const char* method, const char* argument,
                     const char* argument_help) {
    const auto options = std::make_shared<ClientOptions>();
    return {.name = name,
            .help = help,
            .arguments = {{.name = argument,
                           .help = argument_help,
                           .take = common::into(options->name),
                           .required = true}},
            .options = {camera_bus_option(options->bus)},
            .run = [options, method] {
                connect_to_camera(options->bus).call(method, "s", options->name.c_str());
                return ExitCode::done;
            }};
}

struct FailOptions {
    std::string bus = "system";
    std::string member;
    bool clear = false;
    std::optional<std::string> error;
    std::optional<std::int64_t> delay;  ///< milliseconds
    std::optional<std::int64_t> times;
    std::optional<double> probability;
    std::optional<std::int64_t> seed;
    bool malformed = false;
    bool silent = false;
    bool drop = false;
};

template <class T>
void append_fault(const common::MessagePtr& call, const char* key, const char* type, T value) {
    ControlClient::append(call, "{sv}", key, type, value);
}

void set_fault(const ControlClient& camera, const FailOptions& options) {
    const common::MessagePtr call = camera.new_call("Fail");
    ControlClient::check_appended(sd_bus_message_open_container(call.get(), 'a', "{sv}"));
    append_fault(call, "member", "s", options.member.c_str());
    if (options.error)
        append_fault(call, "error", "s", options.error->c_str());
    if (options.delay)
        append_fault(call, "delay", "x", *options.delay);
    if (options.times)
        append_fault(call, "times", "x", *options.times);
    if (options.probability)
        append_fault(call, "probability", "d", *options.probability);
    if (options.seed)
        append_fault(call, "seed", "x", *options.seed);
    if (options.malformed)
        append_fault(call, "malformed", "b", 1);
    if (options.silent)
        append_fault(call, "silent", "b", 1);
    if (options.drop)
        append_fault(call, "drop", "b", 1);
    ControlClient::check_appended(sd_bus_message_close_container(call.get()));
    camera.send(call);
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

std::string describe_state(const common::Json& state, common::EventFormat format) {
    check_state({state, "the answer"});
    return format == common::EventFormat::json ? common::json_line(state) + '\n' : show_text(state);
}

/// Asks the camera on the bus whose daemon has started this process. dbus-broker has the service
/// manager start it, which tells it the bus of the session only.
ExitCode activate(const std::string& service) {
    const char* bus = std::getenv("DBUS_STARTER_ADDRESS");
    if (bus == nullptr)
        bus = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (bus == nullptr)
        throw Failure(ExitCode::usage,
                      "'activate' is for the bus daemon to run: neither DBUS_STARTER_ADDRESS nor "
                      "DBUS_SESSION_BUS_ADDRESS is set");
    try {
        connect_to_camera(bus).call("Activate", "s", service.c_str());
    } catch (const Failure& failure) {
        common::print_message(common::Severity::error, failure.what());
        return static_cast<ExitCode>(1);
    }
    return ExitCode::done;
}

}  // namespace

Command set_command() {
    const auto options = std::make_shared<ClientOptions>();
    return {.name = "set",
            .help = "Sets a value, such as temperature.main to 71.5",
            .arguments = {{.name = "NAME",
                           .help = "One of the values that show lists",
                           .take = common::into(options->name),
                           .required = true},
                          {.name = "VALUE",
                           .help = "The new value; -inf needs a -- before it",
                           .take = common::into(options->value),
                           .required = true}},
            .options = {camera_bus_option(options->bus)},
            .run = [options] {
                connect_to_camera(options->bus)
                    .call("Set", "ss", options->name.c_str(), options->value.c_str());
                return ExitCode::done;
            }};
}

Command start_command() {
    return name_command("start", "Brings a service up", "Start", "SERVICE", service_names);
}

Command stop_command() {
    return name_command("stop", "Takes a service down", "Stop", "SERVICE", service_names);
}

Command restart_command() {
    return name_command("restart", "Takes a service down and brings it up again", "Restart",
                        "SERVICE", service_names);
}

Command press_command() {
    return name_command("press", "Presses an on-screen button that a client has added", "Press",
                        "BUTTON", "The name that the client gave it");
}

Command fail_command() {
    const auto options = std::make_shared<FailOptions>();
    return {.name = "fail",
            .help = "Makes a method, signal or property go wrong",
            .arguments = {{.name = "MEMBER",
                           .help = "A method, signal or property, or SERVICE.MEMBER",
                           .take = common::into(options->member),
                           .required = true}},
            .options = {camera_bus_option(options->bus),
                        {.name = "--clear",
                         .help = "Lets it work again; goes with no other option of fail",
                         .take = common::into(options->clear),
                         .excludes = {"--probability", "--error", "--delay", "--malformed",
                                      "--silent", "--drop", "--times", "--seed"}},
                        {.name = "--probability",
                         .value = "P",
                         .help = "Hits a message with this probability, above 0 and at most 1",
                         .take = common::into(options->probability)},
                        {.name = "--error",
                         .value = "NAME",
                         .help = "Answers with this D-Bus error",
                         .take = common::into(options->error)},
                        {.name = "--delay",
                         .value = "MS",
                         .help = "Sends it this many milliseconds later",
                         .take = common::into(options->delay)},
                        {.name = "--malformed",
                         .help = "Sends it with a wrong signature or type",
                         .take = common::into(options->malformed)},
                        {.name = "--silent",
                         .help = "Does not send it at all",
                         .take = common::into(options->silent)},
                        {.name = "--drop",
                         .help = "Lets the service leave the bus in place of sending",
                         .take = common::into(options->drop)},
                        {.name = "--times",
                         .value = "N",
                         .help = "For the next N only; without, until cleared",
                         .take = common::into(options->times)},
                        {.name = "--seed",
                         .value = "S",
                         .help = "The same seed hits the same messages; goes with --probability",
                         .take = common::into(options->seed),
                         .needs = "--probability"}},
            .run = [options] {
                const ControlClient camera = connect_to_camera(options->bus);
                if (options->clear)
                    camera.call("ClearFault", "s", options->member.c_str());
                else
                    set_fault(camera, *options);
                return ExitCode::done;
            }};
}

Command show_command() {
    struct ShowOptions {
        std::string bus = "system";
        common::EventFormat format = common::EventFormat::text;
    };
    const auto options = std::make_shared<ShowOptions>();
    return {
        .name = "show",
        .help = "Shows the state of the camera",
        .options = {camera_bus_option(options->bus),
                    common::format_option("the lines", options->format)},
        .run = [options] {
            common::print_text(
                connect_to_camera(options->bus).read_json("Show", [&](const common::Json& state) {
                    return describe_state(state, options->format);
                }));
            return ExitCode::done;
        }};
}

Command activate_command() {
    const auto service = std::make_shared<std::string>();
    return {.name = "activate",
            .help = "Brings a service up for the bus daemon",
            .arguments = {{.name = "SERVICE", .take = common::into(*service), .required = true}},
            .hidden = true,
            .run = [service] { return activate(*service); }};
}

}  // namespace camera
