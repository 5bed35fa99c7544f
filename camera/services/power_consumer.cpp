#include <fmt/core.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "camera/models/number_text.hpp"
#include "camera/models/power.hpp"
#include "camera/services/services.hpp"

namespace camera {
namespace {

using common::Json;
using common::MessagePtr;

constexpr const char* budget_value = "power.budget";
const std::string share_prefix = "power.share.";
/// The share of a consumer that is not registered.
constexpr const char* no_share = "none";
constexpr const char* computed = "it follows from the budget and the requests";
/// As long as a bus name may be, because the name appears in lines that people read.
constexpr std::size_t max_name_length = 255;

Json parse_power(const std::string& text) {
    return amount_from_text(text, "power");
}

Json parse_share(const std::string& text) {
    return text == no_share ? Json(no_share) : Json(amount_from_text(text, "share", ", or none"));
}

Value share_value(const std::string& consumer, Json share) {
    return {share_prefix + consumer, common::share(std::move(share)), parse_share, nullptr,
            computed};
}

/// "gets 4.5 of 6.0 (control), at com.tarlo.Vipd.ch0 /… com.tarlo.…".
std::string summary_of(const PowerConsumer& consumer) {
    const std::string share =
        consumer.request ? fmt::format("gets {} of {} ({})", number_text(consumer.share),
                                       number_text(consumer.request->power), consumer.request->kind)
                         : "has not asked for power";
    const ConsumerAddress& at = consumer.address;
    return fmt::format("{}, at {} {} {}", share, at.service, at.path, at.interface);
}

class PowerConsumerService final : public Service {
  public:
    PowerConsumerService(PowerModel& model, ServiceContext& context)
        : Service("power-consumer", context), model_(model) {
        serve_object(power_consumers, vtable_);
        declare_outgoing_call("SetPower");
    }

    [[nodiscard]] std::vector<Value> values() override {
        std::vector<Value> values = {
            {budget_value, common::share(model_.budget()), parse_power,
             [this](const std::string& text) { set_budget(amount_from_text(text, "power")); }},
            {"power.left", common::share(model_.left()), parse_power, nullptr, computed}};
        for (const PowerConsumer& consumer : model_.consumers())
            values.push_back(share_value(consumer.name, consumer.share));
        return values;
    }

    [[nodiscard]] std::optional<Value> find_value(const std::string& name) override {
        std::optional<Value> value = Service::find_value(name);
        if (!value && name.starts_with(share_prefix))
            value = share_value(name.substr(share_prefix.size()), no_share);
        return value;
    }

    [[nodiscard]] Json registrations() const override {
        Json list = Json::array();
        for (const PowerConsumer& consumer : model_.consumers()) {
            const ConsumerAddress& at = consumer.address;
            Json entry = {
                {"id", consumer.name},
                {"client", consumer.owner},
                {"what", summary_of(consumer)},
                {"request", nullptr},
                {"share", consumer.share},
                {"address",
                 {{"service", at.service}, {"path", at.path}, {"interface", at.interface}}}};
            if (consumer.request)
                entry["request"] = {{"kind", consumer.request->kind},
                                    {"power", consumer.request->power}};
            list.push_back(std::move(entry));
        }
        return list;
    }

  protected:
    std::size_t drop_client(const std::string& client) override {
        for (const PowerConsumer& consumer : model_.consumers()) {
            if (consumer.owner == client)
                forget_calls(consumer.name);
        }
        auto [count, notices] = model_.drop_owner(client);
        if (count > 0)
            send_shares_afterwards(std::move(notices));
        return count;
    }

    void forget() override {
        model_.drop_all();
        values_changed();
    }

  private:
    static const sd_bus_vtable vtable_[];

    MessagePtr register_consumer(sd_bus_message& call, const std::string& name, bool flag,
                                 const std::string& service, const std::string& path,
                                 const std::string& interface);
    MessagePtr request_power(sd_bus_message& call, const std::string& name, const std::string& kind,
                             double power);
    MessagePtr unregister(sd_bus_message& call, const std::string& name);

    void check_name(const std::string& name) const;
    void check_address(const ConsumerAddress& address) const;
    /// @throws DBusError where the sender has not registered a consumer of that name.
    void check_registered(sd_bus_message& call, const std::string& name) const;
    [[nodiscard]] DBusError owned_by_another(const std::string& consumer) const {
        return error("OwnedByAnother",
                     fmt::format("Another client has registered the consumer '{}'.", consumer));
    }

    void set_budget(double budget);
    void send_shares(const std::vector<PowerNotice>& notices);
    /// Sends them once the call is answered, or the departure logged, and reports that values have
    /// changed.
    void send_shares_afterwards(std::vector<PowerNotice> notices) {
        values_changed();
        afterwards([this, due = std::move(notices)] { send_shares(due); });
    }

    PowerModel& model_;
};

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

MessagePtr PowerConsumerService::register_consumer(sd_bus_message& call, const std::string& name,
                                                   bool /*flag*/, const std::string& service,
                                                   const std::string& path,
                                                   const std::string& interface) {
    const ConsumerAddress address{service, path, interface};
    check_name(name);
    check_address(address);
    const std::string caller = sd_bus_message_get_sender(&call);
    const PowerConsumer* known = model_.by_name(name);
    if (known != nullptr && known->owner != caller)
        throw owned_by_another(name);
    model_.add(name, caller, address);
    follow_sender(call);
    values_changed();
    return reply(call, "");
}

MessagePtr PowerConsumerService::request_power(sd_bus_message& call, const std::string& name,
                                               const std::string& kind, double power) {
    check_registered(call, name);
    if (!std::isfinite(power) || power < 0.0)
        throw error("InvalidRequest",
                    fmt::format("The power must be a finite number of at least 0, not {}.",
                                number_text(power)));
    send_shares_afterwards(model_.request(name, {kind, power}));
    return reply(call, "");
}

MessagePtr PowerConsumerService::unregister(sd_bus_message& call, const std::string& name) {
    check_registered(call, name);
    forget_calls(name);
    send_shares_afterwards(model_.remove(name));
    return reply(call, "");
}

void PowerConsumerService::check_name(const std::string& name) const {
    if (name.empty() || name.size() > max_name_length)
        throw error("InvalidName", fmt::format("A consumer's name must have 1 to {} bytes, not {}.",
                                               max_name_length, name.size()));
}

void PowerConsumerService::check_address(const ConsumerAddress& address) const {
    const auto require = [this](int valid, const std::string& text, const char* noun) {
        if (valid <= 0)
            throw error("InvalidAddress", fmt::format("'{}' is not a valid {}.", text, noun));
    };
    require(sd_bus_service_name_is_valid(address.service.c_str()), address.service, "bus name");
    require(sd_bus_object_path_is_valid(address.path.c_str()), address.path, "object path");
    require(sd_bus_interface_name_is_valid(address.interface.c_str()), address.interface,
            "interface name");
}

void PowerConsumerService::check_registered(sd_bus_message& call, const std::string& name) const {
    const PowerConsumer* known = model_.by_name(name);
    if (known == nullptr)
        throw error("NotRegistered", fmt::format("No consumer is registered as '{}'.", name));
    if (known->owner != sd_bus_message_get_sender(&call))
        throw owned_by_another(name);
}

void PowerConsumerService::set_budget(double budget) {
    const std::vector<PowerNotice> notices = model_.set_budget(budget);
    event_log().value_set(name(), budget_value, model_.budget(),
                          fmt::format("the power budget is {}", number_text(model_.budget())));
    send_shares(notices);
}

void PowerConsumerService::send_shares(const std::vector<PowerNotice>& notices) {
    for (const PowerNotice& notice : notices) {
        const ConsumerAddress& at = model_.by_name(notice.consumer)->address;
        call_out(notice.consumer, {at.service.c_str(), at.path.c_str(), at.interface.c_str()},
                 "SetPower", "d", notice.share);
    }
}

}  // namespace

std::unique_ptr<Service> make_power_consumer_service(PowerModel& model, ServiceContext& context) {
    return std::make_unique<PowerConsumerService>(model, context);
}

}  // namespace camera
