#include "camera/services/temperature.hpp"

#include <fmt/core.h>

#include <stdexcept>

#include "camera/models/number_text.hpp"
#include "common/text/number_text.hpp"
#include "common/text/suggestion.hpp"

namespace camera {
namespace {

using common::check;
using common::Json;
using common::MessagePtr;

constexpr const char* change_signal = "TemperatureChangeSignal";
constexpr const char* limit_signal = "TemperatureSignal";
const std::string value_prefix = "temperature.";

DBusError refusal(const char* name, const std::string& sentence) {
    return {std::string("com.tarlo.TemperatureController.Error.") + name, sentence};
}

DBusError too_many_registrations() {
    return refusal("TooManyRegistrations", fmt::format("At most {} registrations are accepted.",
                                                       TemperatureModel::max_registrations));
}

Json change_json(const ChangeRegistration& subscription, const std::string& sensor) {
    return {{"what", fmt::format("change of {} by {}", sensor, number_text(subscription.delta()))},
            {"delta", common::json_number(subscription.delta())},
            {"reported", common::json_number(subscription.reported())}};
}

Json limit_json(const LimitRegistration& subscription, const std::string& sensor) {
    const std::string limit = number_text(subscription.limit());
    return {{"what", sensor + (subscription.rising() ? " above " : " at or below ") + limit},
            {"limit", common::json_number(subscription.limit())},
            {"rising", subscription.rising()},
            {"beyond", subscription.beyond()}};
}

}  // namespace

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

std::span<const ServedObject> TemperatureService::objects() const {
    static const ServedObject object[] = {{temperature_controller, vtable_}};
    return object;
}

const Sensor& TemperatureService::sensor_with(std::int32_t id) const {
    const Sensor* sensor = model_.by_id(id);
    if (sensor == nullptr)
        throw refusal("UnknownSensor", fmt::format("No sensor has the id {}.", id));
    return *sensor;
}

MessagePtr TemperatureService::get_temperature_id_from_name(sd_bus_message& call) {
    const char* name = nullptr;
    check(sd_bus_message_read(&call, "s", &name), "sd_bus_message_read");
    const Sensor* sensor = model_.by_name(name);
    if (sensor == nullptr)
        throw refusal("UnknownSensor", fmt::format("Unknown sensor '{}'.", name));
    return reply(call, "i", sensor->id);
}

MessagePtr TemperatureService::get_temperature(sd_bus_message& call) {
    std::int32_t id = 0;
    const char* name = nullptr;
    check(sd_bus_message_read(&call, "is", &id, &name), "sd_bus_message_read");
    const Sensor& sensor = sensor_with(id);
    if (sensor.name != name)
        throw refusal("UnknownSensor",
                      fmt::format("The sensor with the id {} is named '{}', not '{}'.", id,
                                  sensor.name, name));
    return reply(call, "d", sensor.temperature);
}

MessagePtr TemperatureService::register_for_change(sd_bus_message& call) {
    std::int32_t id = 0;
    double delta = 0.0;
    check(sd_bus_message_read(&call, "id", &id, &delta), "sd_bus_message_read");
    try {
        return reply(
            call, "i",
            model_.register_change(sd_bus_message_get_sender(&call), sensor_with(id).id, delta));
    } catch (const std::length_error&) {
        throw too_many_registrations();
    }
}

MessagePtr TemperatureService::register_for_limit(sd_bus_message& call) {
    std::int32_t id = 0;
    double limit = 0.0;
    int rising = 0;
    check(sd_bus_message_read(&call, "idb", &id, &limit, &rising), "sd_bus_message_read");
    try {
        const auto [signal_id, crossed] = model_.register_limit(
            sd_bus_message_get_sender(&call), sensor_with(id).id, limit, rising != 0);
        return reply(call, "ib", signal_id, static_cast<int>(crossed));
    } catch (const std::length_error&) {
        throw too_many_registrations();
    }
}

std::vector<Value> TemperatureService::values() const {
    std::vector<Value> values;
    for (const Sensor& sensor : model_.sensors())
        values.push_back({value_prefix + sensor.name, common::json_number(sensor.temperature)});
    return values;
}

bool TemperatureService::claims(const std::string& value) const {
    return value.starts_with(value_prefix);
}

const Sensor& TemperatureService::sensor_of(const std::string& value) const {
    const std::string name = value.substr(value_prefix.size());
    if (const Sensor* sensor = model_.by_name(name))
        return *sensor;
    std::vector<std::string> known;
    for (const Sensor& sensor : model_.sensors())
        known.push_back(sensor.name);
    throw CommandError(fmt::format("unknown sensor '{}'", name), common::did_you_mean(name, known));
}

double TemperatureService::parse_temperature(const std::string& text) {
    const std::optional<double> temperature = common::parse_number<double>(text);
    if (!temperature)
        throw CommandError(fmt::format(
            "'{}' is not a valid temperature: expected a number, nan, inf or -inf", text));
    return *temperature;
}

Json TemperatureService::parse_value(const std::string& name, const std::string& text) const {
    (void)sensor_of(name);
    return common::json_number(parse_temperature(text));
}

void TemperatureService::set_value(const std::string& name, const std::string& text) {
    const std::string sensor = sensor_of(name).name;
    const double temperature = parse_temperature(text);
    const std::vector<TemperatureNotice> due = model_.set(sensor, temperature);
    event_log().value_set(this->name(), name, common::json_number(temperature),
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
            entry.update(change_json(*change, sensor));
        else
            entry.update(
                limit_json(std::get<LimitRegistration>(registration.subscription), sensor));
        list.push_back(std::move(entry));
    }
    return list;
}

}  // namespace camera
