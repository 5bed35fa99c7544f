#include "camera/services/power_consumer.hpp"

#include <fmt/core.h>

#include <cmath>
#include <stdexcept>

#include "camera/models/number_text.hpp"
#include "common/text/number_text.hpp"

namespace camera {
namespace {

using common::check;
using common::Json;
using common::MessagePtr;

constexpr const char* budget_value = "power.budget";
constexpr const char* left_value = "power.left";
const std::string share_prefix = "power.share.";
/// The share of a consumer that is not registered.
constexpr const char* no_share = "none";
/// As long as a bus name may be: names end up in lines that people read.
constexpr std::size_t max_name_length = 255;

DBusError refusal(const char* name, const std::string& sentence) {
    return {std::string("com.tarlo.PowerControl.Consumer.Error.") + name, sentence};
}

DBusError owned_by_another(const std::string& consumer) {
    return refusal("OwnedByAnother",
                   fmt::format("Another client has registered the consumer '{}'.", consumer));
}

void check_name(const std::string& name) {
    if (name.empty() || name.size() > max_name_length)
        throw refusal("InvalidName",
                      fmt::format("A consumer's name must have 1 to {} bytes, not {}.",
                                  max_name_length, name.size()));
}

void check_address(const ConsumerAddress& address) {
    const auto invalid = [](const std::string& text, const char* what) {
        throw refusal("InvalidAddress", fmt::format("'{}' is not a valid {}.", text, what));
    };
    if (sd_bus_service_name_is_valid(address.service.c_str()) <= 0)
        invalid(address.service, "bus name");
    if (sd_bus_object_path_is_valid(address.path.c_str()) <= 0)
        invalid(address.path, "object path");
    if (sd_bus_interface_name_is_valid(address.interface.c_str()) <= 0)
        invalid(address.interface, "interface name");
}

/// A consumer in words: "gets 4.5 of 6.0 (control), at com.tarlo.Vipd.ch0 /… com.tarlo.…".
std::string in_words(const PowerConsumer& consumer) {
    const std::string share =
        consumer.request ? fmt::format("gets {} of {} ({})", number_text(consumer.share),
                                       number_text(consumer.request->power), consumer.request->kind)
                         : "has not asked for power";
    const ConsumerAddress& at = consumer.address;
    return fmt::format("{}, at {} {} {}", share, at.service, at.path, at.interface);
}

}  // namespace

const sd_bus_vtable PowerConsumerService::vtable_[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS(
        "Register", SD_BUS_ARGS("s", consumer, "b", flag, "s", service, "s", path, "s", interface),
        SD_BUS_NO_RESULT, serve<&PowerConsumerService::register_consumer>,
        SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("RequestPower", SD_BUS_ARGS("s", consumer, "s", kind, "d", power),
                            SD_BUS_NO_RESULT, serve<&PowerConsumerService::request_power>,
                            SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Unregister", SD_BUS_ARGS("s", consumer), SD_BUS_NO_RESULT,
                            serve<&PowerConsumerService::unregister>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

std::span<const ServedObject> PowerConsumerService::objects() const {
    static const ServedObject object[] = {{power_consumers, vtable_}};
    return object;
}

std::vector<std::string> PowerConsumerService::outgoing_calls() const {
    return {"SetPower"};
}

MessagePtr PowerConsumerService::register_consumer(sd_bus_message& call) {
    const char* name = nullptr;
    int flag = 0;
    const char* service = nullptr;
    const char* path = nullptr;
    const char* interface = nullptr;
    check(sd_bus_message_read(&call, "sbsss", &name, &flag, &service, &path, &interface),
          "sd_bus_message_read");
    const ConsumerAddress address{service, path, interface};
    check_name(name);
    check_address(address);
    const std::string caller = sd_bus_message_get_sender(&call);
    const PowerConsumer* known = model_.by_name(name);
    if (known != nullptr && known->owner != caller)
        throw owned_by_another(name);
    try {
        model_.add(name, caller, address);
    } catch (const std::length_error&) {
        throw refusal("TooManyConsumers",
                      fmt::format("At most {} consumers are accepted.", PowerModel::max_consumers));
    }
    values_changed();
    return reply(call, "");
}

MessagePtr PowerConsumerService::request_power(sd_bus_message& call) {
    const char* name = nullptr;
    const char* kind = nullptr;
    double power = 0.0;
    check(sd_bus_message_read(&call, "ssd", &name, &kind, &power), "sd_bus_message_read");
    check_registered(call, name);
    if (!std::isfinite(power) || power < 0.0)
        throw refusal("InvalidRequest",
                      fmt::format("The power must be a finite number of at least 0, not {}.",
                                  number_text(power)));
    send_shares_afterwards(model_.request(name, {kind, power}));
    return reply(call, "");
}

MessagePtr PowerConsumerService::unregister(sd_bus_message& call) {
    const char* name = nullptr;
    check(sd_bus_message_read(&call, "s", &name), "sd_bus_message_read");
    check_registered(call, name);
    forget_calls(name);
    send_shares_afterwards(model_.remove(name));
    return reply(call, "");
}

void PowerConsumerService::check_registered(sd_bus_message& call, const std::string& name) const {
    const PowerConsumer* known = model_.by_name(name);
    if (known == nullptr)
        throw refusal("NotRegistered", fmt::format("No consumer is registered as '{}'.", name));
    if (known->owner != sd_bus_message_get_sender(&call))
        throw owned_by_another(name);
}

std::size_t PowerConsumerService::client_left(const std::string& unique_name) {
    for (const PowerConsumer& consumer : model_.consumers()) {
        if (consumer.owner == unique_name)
            forget_calls(consumer.name);
    }
    auto [count, notices] = model_.drop_owner(unique_name);
    if (count > 0)
        send_shares_afterwards(std::move(notices));
    return count;
}

void PowerConsumerService::forget() {
    model_.drop_all();
    values_changed();
}

void PowerConsumerService::send_shares(const std::vector<PowerNotice>& notices) {
    for (const PowerNotice& notice : notices) {
        const ConsumerAddress& at = model_.by_name(notice.consumer)->address;
        call_out(notice.consumer, {at.service.c_str(), at.path.c_str(), at.interface.c_str()},
                 "SetPower", "d", notice.share);
    }
}

void PowerConsumerService::send_shares_afterwards(std::vector<PowerNotice> notices) {
    values_changed();
    afterwards([this, due = std::move(notices)] { send_shares(due); });
}

std::vector<Value> PowerConsumerService::values() const {
    std::vector<Value> values = {{budget_value, model_.budget()}, {left_value, model_.left()}};
    for (const PowerConsumer& consumer : model_.consumers())
        values.push_back({share_prefix + consumer.name, consumer.share});
    return values;
}

bool PowerConsumerService::claims(const std::string& value) const {
    return value.starts_with(share_prefix) || Service::claims(value);
}

Json PowerConsumerService::value(const std::string& name) const {
    if (name.starts_with(share_prefix) && !Service::claims(name))
        return no_share;
    return Service::value(name);
}

Json PowerConsumerService::parse_value(const std::string& name, const std::string& text) const {
    const bool share = name.starts_with(share_prefix);
    if (share && text == no_share)
        return no_share;
    const std::optional<double> power = common::parse_number<double>(text);
    if (!power || !std::isfinite(*power) || *power < 0.0)
        throw CommandError(
            fmt::format("'{}' is not a valid {}: expected a finite number of at least 0{}", text,
                        share ? "share" : "power", share ? ", or none" : ""));
    return *power;
}

void PowerConsumerService::check_settable(const std::string& name) const {
    if (name != budget_value)
        throw CommandError(
            fmt::format("'{}' cannot be set: it follows from the budget and the requests", name));
}

void PowerConsumerService::set_value(const std::string& name, const std::string& text) {
    const auto budget = parse_value(name, text).get<double>();
    const std::vector<PowerNotice> notices = model_.set_budget(budget);
    event_log().value_set(this->name(), name, model_.budget(),
                          fmt::format("the power budget is {}", number_text(model_.budget())));
    send_shares(notices);
}

Json PowerConsumerService::registrations() const {
    Json list = Json::array();
    for (const PowerConsumer& consumer : model_.consumers()) {
        Json entry = {{"id", consumer.name},
                      {"client", consumer.owner},
                      {"what", in_words(consumer)},
                      {"request", nullptr},
                      {"share", consumer.share},
                      {"address",
                       {{"service", consumer.address.service},
                        {"path", consumer.address.path},
                        {"interface", consumer.address.interface}}}};
        if (consumer.request)
            entry["request"] = {{"kind", consumer.request->kind},
                                {"power", consumer.request->power}};
        list.push_back(std::move(entry));
    }
    return list;
}

}  // namespace camera
