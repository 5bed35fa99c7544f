#include "camera/recorder/recorder.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "camera/bus/message_json.hpp"
#include "camera/recorder/toml_text.hpp"

namespace camera {
namespace {

using common::check;
using common::Json;

constexpr std::string_view daemon_name = "org.freedesktop.DBus";
/// More calls without an answer are forgotten, the oldest first.
constexpr std::size_t max_calls = 10000;
/// A replay waits this much longer for a call than the recording did.
constexpr double call_slack = 5.0;

/// Seconds, to the microsecond.
double seconds(Recorder::Clock::duration time) {
    return std::round(std::chrono::duration<double>(time).count() * 1e6) / 1e6;
}

bool has_member(const Service& service, const std::string& member, MemberKind kind) {
    const Members members = service.members();
    return std::ranges::find(members, std::pair(member, kind)) != members.end();
}

std::string target(const Service& service, const std::string& member) {
    return service.name() + '.' + member;
}

std::string types_of(sd_bus_message& message) {
    return text_or_empty(sd_bus_message_get_signature(&message, 1));
}

}  // namespace

Recorder::Recorder(const Camera& catalogue, Start start,
                   std::function<void(const std::string&)> write)
    : catalogue_(catalogue),
      start_(std::move(start)),
      write_(std::move(write)),
      previous_(start_.time) {}

std::string Recorder::head() const {
    Json down = Json::array();
    Json activatable = Json::array();
    for (const auto& service : catalogue_.services()) {
        const std::vector<std::string> names = service->bus_names();
        if (std::ranges::any_of(
                names, [&](const std::string& name) { return !start_.owners.contains(name); }))
            down.push_back(service->name());
        if (std::ranges::all_of(
                names, [&](const std::string& name) { return start_.activatable.contains(name); }))
            activatable.push_back(service->name());
    }
    return fmt::format("down = {}\nactivatable = {}\n", toml_text(down), toml_text(activatable));
}

void Recorder::take(sd_bus_message& message, Clock::time_point now) {
    std::uint8_t type = 0;
    check(sd_bus_message_get_type(&message, &type), "sd_bus_message_get_type");
    switch (type) {
        case SD_BUS_MESSAGE_METHOD_CALL:
            return take_call(message, now);
        case SD_BUS_MESSAGE_METHOD_RETURN:
        case SD_BUS_MESSAGE_METHOD_ERROR:
            return take_answer(message, now);
        case SD_BUS_MESSAGE_SIGNAL:
            return take_signal(message, now);
        default:
            return;
    }
}

void Recorder::take_call(sd_bus_message& message, Clock::time_point now) {
    const Service* service = service_at(text_or_empty(sd_bus_message_get_destination(&message)));
    if (service == nullptr)
        return take_outgoing_call(message, now);
    const std::string member = text_or_empty(sd_bus_message_get_member(&message));
    const std::string client = text_or_empty(sd_bus_message_get_sender(&message));
    if (start_.others.contains(client) || !has_member(*service, member, MemberKind::method))
        return;
    called_ = true;
    if (sd_bus_message_get_expect_reply(&message) <= 0)
        return;
    std::uint64_t serial = 0;
    check(sd_bus_message_get_cookie(&message, &serial), "sd_bus_message_get_cookie");
    Json fields = {{"call", target(*service, member)}};
    const std::string path = text_or_empty(sd_bus_message_get_path(&message));
    if (path != service->objects().front().names.path)
        fields["path"] = path;
    fields["arguments"] = body_json(message);
    calls_.push_back({client, serial, service, member, std::move(fields), now});
    if (calls_.size() > max_calls)
        calls_.pop_front();
}

void Recorder::take_outgoing_call(sd_bus_message& message, Clock::time_point now) {
    const std::string member = text_or_empty(sd_bus_message_get_member(&message));
    const std::string to = text_or_empty(sd_bus_message_get_destination(&message));
    const Service* service = service_of(text_or_empty(sd_bus_message_get_sender(&message)), member,
                                        MemberKind::outgoing_call);
    // A client has another unique name in a replay.
    if (service == nullptr || to.starts_with(':'))
        return;
    add_timed("call",
              {{"member", target(*service, member)},
               {"to", to},
               {"path", text_or_empty(sd_bus_message_get_path(&message))},
               {"interface", text_or_empty(sd_bus_message_get_interface(&message))},
               {"types", types_of(message)},
               {"arguments", typed_body_json(message)}},
              now);
}

void Recorder::take_answer(sd_bus_message& message, Clock::time_point now) {
    std::uint64_t serial = 0;
    const std::string client = text_or_empty(sd_bus_message_get_destination(&message));
    if (sd_bus_message_get_reply_cookie(&message, &serial) < 0)
        return;
    const auto it = std::ranges::find_if(
        calls_, [&](const Call& call) { return call.client == client && call.serial == serial; });
    if (it == calls_.end())
        return;
    const Call call = std::move(*it);
    calls_.erase(it);
    const sd_bus_error* error = sd_bus_message_get_error(&message);
    // The daemon answers for a service that is down: it does so in a replay too.
    const bool by_daemon = daemon_name == text_or_empty(sd_bus_message_get_sender(&message));
    if (by_daemon && !sd_bus_error_has_name(error, SD_BUS_ERROR_ACCESS_DENIED))
        return;
    // In a replay, answers go to calls with the same arguments in the order of the calls.
    give_up(
        [&](const Call& other) { return other.fields == call.fields && other.time < call.time; },
        now);
    Json answer = Json::object();
    if (error != nullptr) {
        answer["error"] = error->name;
        if (error->message != nullptr)
            answer["message"] = error->message;
    } else {
        if (types_of(message) != result_types(call.service->objects(), call.member))
            answer["types"] = types_of(message);
        answer["values"] = typed_body_json(message);
    }
    add_reply(call, std::move(answer), now);
}

void Recorder::add_reply(const Call& call, Json answer, Clock::time_point now) {
    Json reply = call.fields;
    reply.update(answer);
    if (now > call.time)
        reply["after"] = seconds(now - call.time);
    const double waited = seconds(call.time - previous_);
    if (waited > 1.0)
        reply["within"] = std::ceil(waited + call_slack);
    add_step("reply = " + toml_text(reply) + '\n', now);
}

void Recorder::give_up(const std::function<bool(const Call&)>& unanswered, Clock::time_point now) {
    for (auto it = calls_.begin(); it != calls_.end();) {
        if (!unanswered(*it)) {
            ++it;
            continue;
        }
        add_reply(*it, {{"silent", true}}, std::max(previous_, it->time));
        it = calls_.erase(it);
    }
    previous_ = std::min(previous_, now);
}

void Recorder::take_signal(sd_bus_message& message, Clock::time_point now) {
    const std::string sender = text_or_empty(sd_bus_message_get_sender(&message));
    const std::string member = text_or_empty(sd_bus_message_get_member(&message));
    if (sender == daemon_name) {
        if (member == "NameOwnerChanged")
            take_owner_change(message, now);
        return;
    }
    const Service* service = service_of(sender, member, MemberKind::signal);
    if (service == nullptr || !called_)
        return;
    const ServedObject& object = *object_with_signal(service->objects(), member);
    const std::string interface = text_or_empty(sd_bus_message_get_interface(&message));
    const std::string path = text_or_empty(sd_bus_message_get_path(&message));
    Json signal = {{"member", target(*service, member)}};
    if (path != object.names.path)
        signal["path"] = path;
    if (interface != signal_interface(object, member))
        signal["interface"] = interface;
    if (types_of(message) != signal_types(object, member))
        signal["types"] = types_of(message);
    signal["arguments"] = typed_body_json(message);
    add_timed("signal", signal, now);
}

void Recorder::take_owner_change(sd_bus_message& message, Clock::time_point now) {
    const Json change = body_json(message);
    const auto name = change.at(0).get<std::string>();
    const auto owner = change.at(2).get<std::string>();
    if (name.starts_with(':') && owner.empty()) {
        std::erase_if(calls_, [&](const Call& call) { return call.client == name; });
        start_.others.erase(name);
        return;
    }
    const Service* service = service_at(name);
    const auto before = start_.owners.find(name);
    // The change may be older than the owners at the start.
    if (service == nullptr || (before != start_.owners.end() && before->second == owner) ||
        (before == start_.owners.end() && owner.empty()))
        return;
    if (before != start_.owners.end()) {
        give_up([&](const Call& call) { return call.service == service; }, now);
        add_timed("stop", service->name(), now);
        start_.owners.erase(before);
    }
    if (!owner.empty()) {
        start_.owners[name] = owner;
        add_timed("start", service->name(), now);
    }
}

const Service* Recorder::service_at(const std::string& name) const {
    for (const auto& service : catalogue_.services()) {
        for (const std::string& bus_name : service->bus_names()) {
            const auto owner = start_.owners.find(bus_name);
            if (name == bus_name || (owner != start_.owners.end() && owner->second == name))
                return service.get();
        }
    }
    return nullptr;
}

const Service* Recorder::service_of(const std::string& unique_name, const std::string& member,
                                    MemberKind kind) const {
    for (const auto& service : catalogue_.services()) {
        for (const std::string& bus_name : service->bus_names()) {
            const auto owner = start_.owners.find(bus_name);
            if (owner != start_.owners.end() && owner->second == unique_name &&
                has_member(*service, member, kind))
                return service.get();
        }
    }
    return nullptr;
}

void Recorder::add_timed(std::string_view action, const Json& value, Clock::time_point now) {
    add_step(fmt::format("after = {}\n{} = {}\n", toml_text(seconds(now - previous_)), action,
                         toml_text(value)),
             now);
}

void Recorder::add_step(const std::string& text, Clock::time_point now) {
    previous_ = now;
    ++steps_;
    write_("\n[[steps]]\n" + text);
}

void Recorder::finish(Clock::time_point now) {
    give_up([](const Call&) { return true; }, now);
    write_("\n[[steps]]\nafter = " + toml_text(seconds(now - previous_)) + '\n');
}

}  // namespace camera
