#include "tests/integration/camera/bus_client.hpp"

#include <stdexcept>

#include "camera/bus/message_json.hpp"

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
    sd_bus_message* message = nullptr;
    common::check(sd_bus_message_new_method_call(bus(), &message, service_.name, service_.path,
                                                 service_.interface, member),
                  "sd_bus_message_new_method_call");
    return common::MessagePtr(message);
}

std::string BusClient::call(const common::MessagePtr& message, std::chrono::milliseconds limit) {
    common::BusError error;
    sd_bus_message* reply = nullptr;
    const auto limit_us = static_cast<std::uint64_t>(limit.count()) * 1000;
    const int r = sd_bus_call(bus(), message.get(), limit_us, &error, &reply);
    const common::MessagePtr owned(reply);
    return r < 0 ? error.text(r) : answer_of(*reply);
}

void BusClient::send(const common::MessagePtr& message, const char* member) {
    pending_.push_back(std::make_unique<Pending>(Pending{this, member, nullptr}));
    sd_bus_slot* slot = nullptr;
    common::check(
        sd_bus_call_async(bus(), &slot, message.get(), on_answer, pending_.back().get(), 0),
        "sd_bus_call_async");
    pending_.back()->slot.reset(slot);
    common::check(sd_bus_flush(bus()), "sd_bus_flush");
}

void BusClient::listen() {
    sd_bus_slot* slot = nullptr;
    common::check(sd_bus_match_signal(bus(), &slot, service_.name, service_.path, nullptr, nullptr,
                                      on_signal, this),
                  "sd_bus_match_signal");
    matches_.emplace_back(slot);
    watch_owner(service_.name);
}

void BusClient::watch_owner(const std::string& name) {
    const std::string rule =
        "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='" + name + "'";
    sd_bus_slot* slot = nullptr;
    common::check(sd_bus_add_match(bus(), &slot, rule.c_str(), on_owner, this), "sd_bus_add_match");
    matches_.emplace_back(slot);
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

int BusClient::on_answer(sd_bus_message* message, void* userdata, sd_bus_error* /*error*/) {
    const auto& pending = *static_cast<const Pending*>(userdata);
    pending.client->heard_.push_back(pending.member + " answers " + answer_of(*message));
    return 0;
}

int BusClient::on_signal(sd_bus_message* message, void* userdata, sd_bus_error* /*error*/) {
    static_cast<BusClient*>(userdata)->heard_.push_back(sd_bus_message_get_member(message) +
                                                        arguments_of(*message));
    return 0;
}

int BusClient::on_owner(sd_bus_message* message, void* userdata, sd_bus_error* /*error*/) {
    const common::Json owners = camera::body_json(*message);
    const auto name = [&owners](std::size_t i) {
        const auto text = owners[i].get<std::string>();
        return text.empty() ? std::string("none") : text;
    };
    static_cast<BusClient*>(userdata)->heard_.push_back("owner " + name(1) + " -> " + name(2));
    return 0;
}

}  // namespace test
