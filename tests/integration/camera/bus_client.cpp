#include "tests/integration/camera/bus_client.hpp"

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "camera/bus/message_json.hpp"
#include "common/bus/callback.hpp"

namespace test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds timeout{20};

std::string arguments_of(sd_bus_message& message) {
    return '(' + camera::arguments_text(camera::body_json(message)) + ')';
}

std::string answer_of(sd_bus_message& message) {
    const sd_bus_error* error = sd_bus_message_get_error(&message);
    if (error == nullptr)
        return arguments_of(message);
    return std::string(error->name) + ": " + (error->message == nullptr ? "" : error->message);
}

}  // namespace

BusClient::BusClient(const std::string& address, const camera::BusObject& service)
    : service_(service), bus_(common::open_bus(address, timeout)) {}

std::string BusClient::unique_name() const {
    const char* name = nullptr;
    common::check(sd_bus_get_unique_name(bus(), &name), "sd_bus_get_unique_name");
    return name;
}

common::MessagePtr BusClient::new_call(const char* member) const {
    common::MessagePtr message;
    common::check(sd_bus_message_new_method_call(bus(), message.out(), service_.name, service_.path,
                                                 service_.interface, member),
                  "sd_bus_message_new_method_call");
    return message;
}

std::string BusClient::call(const common::MessagePtr& message, std::chrono::milliseconds limit) {
    common::BusError error;
    common::MessagePtr reply;
    const auto limit_us = static_cast<std::uint64_t>(limit.count()) * 1000;
    const int r = sd_bus_call(bus(), message.get(), limit_us, &error, reply.out());
    return r < 0 ? error.text(r) : answer_of(*reply);
}

void BusClient::send(const common::MessagePtr& message, const char* member) {
    pending_.push_back(std::make_unique<Pending>(Pending{this, member, nullptr}));
    Pending& pending = *pending_.back();
    common::check(sd_bus_call_async(bus(), pending.slot.out(), message.get(),
                                    common::callback<&Pending::on_answer>, &pending, 0),
                  "sd_bus_call_async");
    common::check(sd_bus_flush(bus()), "sd_bus_flush");
}

void BusClient::listen() {
    common::check(
        sd_bus_match_signal(bus(), matches_.emplace_back().out(), service_.name, service_.path,
                            nullptr, nullptr, common::callback<&BusClient::on_signal>, this),
        "sd_bus_match_signal");
    watch_owner(service_.name);
}

void BusClient::watch_owner(const std::string& name) {
    const std::string rule =
        "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='" + name + "'";
    common::check(sd_bus_add_match(bus(), matches_.emplace_back().out(), rule.c_str(),
                                   common::callback<&BusClient::on_owner>, this),
                  "sd_bus_add_match");
}

const std::vector<std::string>& BusClient::wait_for(std::size_t lines) {
    const auto deadline = Clock::now() + timeout;
    while (heard_.size() < lines) {
        if (common::check(sd_bus_process(bus(), nullptr), "sd_bus_process") > 0)
            continue;
        const auto left =
            std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now());
        if (left.count() <= 0) {
            std::string text = "in vain waited for line " + std::to_string(lines) + " after:";
            for (const std::string& line : heard_)
                text += "\n  " + line;
            throw std::runtime_error(text);
        }
        common::check(sd_bus_wait(bus(), static_cast<std::uint64_t>(left.count())), "sd_bus_wait");
    }
    return heard_;
}

void BusClient::Pending::on_answer(sd_bus_message& message) {
    client->hear(member + " answers " + answer_of(message));
}

void BusClient::on_signal(sd_bus_message& message) {
    hear(sd_bus_message_get_member(&message) + arguments_of(message));
}

void BusClient::on_owner(sd_bus_message& message) {
    const common::Json owners = camera::body_json(message);
    const auto name = [&owners](std::size_t i) {
        const auto text = owners[i].get<std::string>();
        return text.empty() ? std::string("none") : text;
    };
    hear("owner " + name(1) + " -> " + name(2));
}

}  // namespace test
