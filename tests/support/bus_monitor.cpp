#include "tests/support/bus_monitor.hpp"

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "camera/bus/message_json.hpp"
#include "tests/support/monitor_connection.hpp"

namespace test {
namespace {

using Clock = std::chrono::steady_clock;
using common::check;

constexpr const char* daemon_name = "org.freedesktop.DBus";

std::string text_or_empty(const char* text) {
    return text == nullptr ? std::string{} : std::string(text);
}

BusMessage read_message(sd_bus_message& message) {
    BusMessage record;
    record.sender = text_or_empty(sd_bus_message_get_sender(&message));
    record.destination = text_or_empty(sd_bus_message_get_destination(&message));
    record.member = text_or_empty(sd_bus_message_get_member(&message));
    record.arguments = camera::arguments_text(camera::body_json(message));
    std::uint8_t type = 0;
    check(sd_bus_message_get_type(&message, &type), "type of a message");
    switch (type) {
        case SD_BUS_MESSAGE_METHOD_CALL:
            record.kind = "calls";
            break;
        case SD_BUS_MESSAGE_METHOD_RETURN:
            record.kind = "replies";
            break;
        case SD_BUS_MESSAGE_METHOD_ERROR:
            record.kind = "refuses";
            record.member = text_or_empty(sd_bus_message_get_error(&message)->name);
            break;
        default:
            record.kind = "signals";
            break;
    }
    return record;
}

/// The three arguments of an owner change, as `arguments_text` writes them.
std::string owner_change(const std::string& name, const std::string& before,
                         const std::string& after) {
    return '"' + name + "\", \"" + before + "\", \"" + after + '"';
}

void replace_all(std::string& text, const std::string& what, const std::string& with) {
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size())
        text.replace(at, what.size(), with);
}

}  // namespace

BusMonitor::BusMonitor(const std::string& address) : bus_(open_monitor(address)) {}

template <class Done>
BusMessage BusMonitor::record_until(const Done& done, const std::string& what) {
    const auto found = std::find_if(messages_.begin(), messages_.end(), done);
    if (found != messages_.end())
        return *found;
    const auto deadline = Clock::now() + std::chrono::seconds(20);
    while (true) {
        common::MessagePtr message;
        const int r = check(sd_bus_process(bus_.get(), message.out()), "the monitor");
        if (message) {
            messages_.push_back(read_message(*message));
            if (done(messages_.back()))
                return messages_.back();
        }
        if (r > 0)
            continue;
        if (Clock::now() > deadline)
            throw std::runtime_error("waited in vain on the bus for " + what);
        check(sd_bus_wait(bus_.get(), 100000), "the monitor");
    }
}

void BusMonitor::record_until_gone(const std::string& unique_name) {
    const std::string gone = owner_change(unique_name, unique_name, "");
    record_until([&gone](const BusMessage& message) { return message.arguments == gone; },
                 "the end of " + unique_name);
}

std::string BusMonitor::caller_of(const std::string& member) {
    const auto is_call = [&member](const BusMessage& message) {
        return message.kind == "calls" && message.member == member;
    };
    return record_until(is_call, "a call of " + member).sender;
}

namespace {

/// The owners that an owner change of `service_name` tells of; empty where it is another message.
std::vector<std::string> owners_in(const BusMessage& message, const std::string& service_name) {
    const std::string prefix = '"' + service_name + "\", \"";
    if (message.member != "NameOwnerChanged" || !message.arguments.starts_with(prefix))
        return {};
    const std::string rest = message.arguments.substr(prefix.size());
    const std::size_t middle = rest.find("\", \"");
    return {rest.substr(0, middle), rest.substr(middle + 4, rest.size() - middle - 5)};
}

/// Names for the connections of a story, by unique name.
std::map<std::string, std::string> roles_in(const std::vector<BusMessage>& messages,
                                            const std::string& client,
                                            const std::string& service_name) {
    std::map<std::string, std::string> roles{{client, "client"}, {daemon_name, "daemon"}};
    std::size_t owners = 0;
    const auto add_owner = [&](const std::string& unique_name) {
        if (roles.count(unique_name) == 0 && !unique_name.empty())
            roles[unique_name] = ++owners == 1 ? "service" : "service " + std::to_string(owners);
    };
    for (const BusMessage& message : messages) {
        for (const std::string& owner : owners_in(message, service_name))
            add_owner(owner);
        // A name that the client owns stands for it where others call it by that name.
        if (message.member == "NameAcquired" && message.destination == client)
            roles[message.arguments.substr(1, message.arguments.size() - 2)] = "client";
        // An owner from before the recording shows by answering.
        if (message.destination == client && message.kind != "calls")
            add_owner(message.sender);
    }
    return roles;
}

}  // namespace

std::vector<std::string> story_of(const std::vector<BusMessage>& recorded,
                                  const std::string& client, const std::string& service_name) {
    const std::vector<BusMessage> messages(
        std::find_if(recorded.begin(), recorded.end(),
                     [&](const BusMessage& message) { return message.sender == client; }),
        recorded.end());
    const std::map<std::string, std::string> roles = roles_in(messages, client, service_name);
    const auto role = [&](const std::string& name) {
        const auto found = roles.find(name);
        return found == roles.end() ? name : found->second;
    };
    std::vector<std::string> story;
    for (const BusMessage& message : messages) {
        const bool signal_of_service = message.kind == "signals" && message.destination.empty() &&
                                       role(message.sender).starts_with("service");
        if (message.sender != client && role(message.destination) != "client" &&
            !signal_of_service && owners_in(message, service_name).empty())
            continue;
        std::string line = role(message.sender) + ' ' + message.kind;
        if (message.kind == "replies")
            line += " to " + role(message.destination) + ": ";
        else if (message.destination.empty())
            line += ": " + message.member;
        else
            line += ' ' +
                    (message.destination == service_name ? "service" : role(message.destination)) +
                    ": " + message.member;
        std::string arguments = message.arguments;
        for (const auto& [name, as] : roles) {
            if (name.starts_with(':'))
                replace_all(arguments, '"' + name + '"', '"' + as + '"');
        }
        story.push_back(line + '(' + arguments + ')');
    }
    return story;
}

}  // namespace test
