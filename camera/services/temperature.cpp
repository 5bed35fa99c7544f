#include "camera/models/temperature.hpp"

#include <fmt/core.h>
#include <nlohmann/json.hpp>

#include "camera/models/number_text.hpp"
#include "camera/services/services.hpp"
#include "common/text/suggestion.hpp"

namespace camera {
namespace {

using common::Json;
using common::MessagePtr;

constexpr const char* change_signal = "TemperatureChangeSignal";
constexpr const char* limit_signal = "TemperatureSignal";
const std::string value_prefix = "temperature.";

Json parse_temperature(const std::string& text) {
    return common::json_number(number_from_text(text, "temperature"));
}

Json change_to_json(const ChangeRegistration& subscription, const std::string& sensor) {
    return {{"what", fmt::format("change of {} by {}", sensor, number_text(subscription.delta()))},
            {"delta", common::json_number(subscription.delta())},
            {"reported", common::json_number(subscription.reported())}};
}

Json limit_to_json(const LimitRegistration& subscription, const std::string& sensor) {
    return {
        {"what", fmt::format("{} {} {}", sensor, subscription.rising() ? "above" : "at or below",
                             number_text(subscription.limit()))},
        {"limit", common::json_number(subscription.limit())},
        {"rising", subscription.rising()},
        {"beyond", subscription.beyond()}};
}

class TemperatureService final : public Service {
  public:
    TemperatureService(TemperatureModel& model, ServiceContext& context)
        : Service("temperature", context), model_(model) {
        serve_object(temperature_controller, vtable_);
    }

    [[nodiscard]] std::vector<Value> values() override {
        std::vector<Value> values;
        for (const Sensor& sensor : model_.sensors())
            values.push_back(value_of(sensor));
        return values;
    }

    [[nodiscard]] std::optional<Value> find_value(const std::string& name) override {
        if (!name.starts_with(value_prefix))
            return std::nullopt;
        const std::string wanted = name.substr(value_prefix.size());
        if (const Sensor* sensor = model_.by_name(wanted))
            return value_of(*sensor);
        std::vector<std::string> known;
        for (const Sensor& sensor : model_.sensors())
            known.push_back(sensor.name);
        throw CommandError(fmt::format("unknown sensor '{}'", wanted),
                           common::did_you_mean(wanted, known));
    }

    [[nodiscard]] Json registrations() const override;

  protected:
    std::size_t drop_client(const std::string& client) override {
        return model_.drop_owner(client);
    }
    void forget() override { model_.drop_all(); }

  private:
    static const sd_bus_vtable vtable_[];

    MessagePtr get_temperature_id_from_name(sd_bus_message& call, const std::string& name) {
        const Sensor* sensor = model_.by_name(name);
        if (sensor == nullptr)
            throw error("UnknownSensor", fmt::format("Unknown sensor '{}'.", name));
        return reply(call, "i", sensor->id);
    }

    MessagePtr get_temperature(sd_bus_message& call, std::int32_t id, const std::string& name) {
        const Sensor& sensor = sensor_with(id);
        if (sensor.name != name)
            throw error("UnknownSensor",
                        fmt::format("The sensor with the id {} is named '{}', not '{}'.", id,
                                    sensor.name, name));
        return reply(call, "d", sensor.temperature);
    }

    MessagePtr register_for_change(sd_bus_message& call, std::int32_t sensor_id, double delta) {
        const std::int32_t signal_id = model_.register_change(sd_bus_message_get_sender(&call),
                                                              sensor_with(sensor_id).id, delta);
        follow_sender(call);
        return reply(call, "i", signal_id);
    }

    MessagePtr register_for_limit(sd_bus_message& call, std::int32_t sensor_id, double limit,
                                  bool rising) {
        const auto [signal_id, crossed] = model_.register_limit(
            sd_bus_message_get_sender(&call), sensor_with(sensor_id).id, limit, rising);
        follow_sender(call);
        return reply(call, "ib", signal_id, static_cast<int>(crossed));
    }

    [[nodiscard]] const Sensor& sensor_with(std::int32_t id) const {
        const Sensor* sensor = model_.by_id(id);
        if (sensor == nullptr)
            throw error("UnknownSensor", fmt::format("No sensor has the id {}.", id));
        return *sensor;
    }

    [[nodiscard]] Value value_of(const Sensor& sensor) {
        return {value_prefix + sensor.name, common::share(common::json_number(sensor.temperature)),
                parse_temperature, [this, name = sensor.name](const std::string& text) {
                    set_temperature(name, number_from_text(text, "temperature"));
                }};
    }

    void set_temperature(const std::string& sensor, double temperature);

    TemperatureModel& model_;
};

const sd_bus_vtable TemperatureService::vtable_[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS(
        "GetTemperatureIdFromName", SD_BUS_ARGS("s", name), SD_BUS_RESULT("i", id),
        serve<&TemperatureService::get_temperature_id_from_name>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS(
        "GetTemperature", SD_BUS_ARGS("i", id, "s", name), SD_BUS_RESULT("d", temperature),
        serve<&TemperatureService::get_temperature>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("RegisterForTemperatureChangeSignal",
                            SD_BUS_ARGS("i", sensor_id, "d", delta), SD_BUS_RESULT("i", signal_id),
                            serve<&TemperatureService::register_for_change>,
                            SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS(
        "RegisterForTemperatureSignal", SD_BUS_ARGS("i", sensor_id, "d", limit, "b", rising),
        SD_BUS_RESULT("i", signal_id, "b", crossed), serve<&TemperatureService::register_for_limit>,
        SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_SIGNAL_WITH_ARGS(change_signal, SD_BUS_ARGS("i", signal_id, "d", temperature), 0),
    SD_BUS_SIGNAL_WITH_ARGS(limit_signal, SD_BUS_ARGS("i", signal_id), 0),
    SD_BUS_VTABLE_END,
};

void TemperatureService::set_temperature(const std::string& sensor, double temperature) {
    const std::vector<TemperatureNotice> due = model_.set(sensor, temperature);
    event_log().value_set(name(), value_prefix + sensor, common::json_number(temperature),
                          fmt::format("sensor {} is {}", sensor, number_text(temperature)));
    for (const TemperatureNotice& notice : due) {
        switch (notice.kind) {
            case TemperatureNotice::Kind::change:
                emit(temperature_controller, change_signal, "id", notice.id, notice.temperature);
                break;
            case TemperatureNotice::Kind::limit:
                emit(temperature_controller, limit_signal, "i", notice.id);
                break;
        }
    }
}

Json TemperatureService::registrations() const {
    Json list = Json::array();
    for (const auto& [id, registration] : model_.registrations()) {
        Json entry = {{"id", id}, {"client", registration.owner}};
        const std::string sensor = model_.by_id(registration.sensor_id)->name;
        if (const auto* change = std::get_if<ChangeRegistration>(&registration.subscription))
            entry.update(change_to_json(*change, sensor));
        else
            entry.update(
                limit_to_json(std::get<LimitRegistration>(registration.subscription), sensor));
        list.push_back(std::move(entry));
    }
    return list;
}

}  // namespace

std::unique_ptr<Service> make_temperature_service(TemperatureModel& model,
                                                  ServiceContext& context) {
    return std::make_unique<TemperatureService>(model, context);
}

}  // namespace camera
