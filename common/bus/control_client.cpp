#include "common/bus/control_client.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <nlohmann/json.hpp>
#include <system_error>

namespace common {
namespace {

/// As long as sd-bus waits for a reply.
constexpr std::chrono::seconds connect_timeout{25};

}  // namespace

ControlClient::ControlClient(ControlPeer peer)
    : peer_(std::move(peer)), bus_(open_bus(peer_.bus, connect_timeout)) {}

MessagePtr ControlClient::new_call(const char* method) const {
    MessagePtr call;
    check(sd_bus_message_new_method_call(bus_.get(), call.out(), peer_.name.c_str(), peer_.path,
                                         peer_.interface, method),
          "cannot make a call");
    // No daemon should look for a program to start.
    check(sd_bus_message_set_auto_start(call.get(), 0), "cannot make a call");
    return call;
}

void ControlClient::check_appended(int r) {
    if (r == -EINVAL)
        throw Failure(ExitCode::usage, "the arguments are not valid UTF-8");
    check(r, "cannot append an argument");
}

MessagePtr ControlClient::send(const MessagePtr& call) const {
    BusError error;
    MessagePtr reply;
    const int r = sd_bus_call(bus_.get(), call.get(), 0, &error, reply.out());
    if (r < 0)
        fail(error.error, error.text(r));
    return reply;
}

SharedJson ControlClient::json_of(sd_bus_message& reply) const {
    if (const sd_bus_error* const error = sd_bus_message_get_error(&reply))
        fail(*error, text_of(*error));
    const char* text = nullptr;
    if (sd_bus_message_read(&reply, "s", &text) < 0)
        throw JsonError("it is not a string");
    return share(parse_json(text, "the answer"));
}

void ControlClient::refuse_reply() const {
    std::string reason;
    try {
        throw;
    } catch (const JsonError& error) {
        reason = error.what();
    } catch (const Json::exception&) {
        reason = "it has an unknown form";
    }
    throw Failure(ExitCode::unavailable,
                  fmt::format("{}'s answer makes no sense: {}", peer_.noun, reason));
}

void ControlClient::fail(const sd_bus_error& error, const std::string& text) const {
    const std::string_view name = error.name == nullptr ? "" : error.name;
    for (const auto& [prefix, code] : peer_.errors) {
        if (name.starts_with(prefix))
            throw Failure(code, error.message == nullptr ? "" : error.message);
    }
    if (name == SD_BUS_ERROR_SERVICE_UNKNOWN || name == SD_BUS_ERROR_NAME_HAS_NO_OWNER)
        throw Failure(ExitCode::unavailable, peer_.absent);
    throw Failure(ExitCode::unavailable, fmt::format("{} does not answer: {}", peer_.noun, text));
}

}  // namespace common
