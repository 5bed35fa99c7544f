#include "src/blocks/temperature/temperature_reader.hpp"

#include <string_view>
#include <utility>

#include "fenwa/bus_call.hpp"
#include "fenwa/debug_data.hpp"
#include "fenwa/log.hpp"
#include "fenwa/ports.hpp"
#include "src/blocks/temperature/temperature_controller.hpp"

namespace blocks {
namespace {

const Fenwa::BlockConfiguration default_configuration{
    {"delta_chg", 1.0},
    {"fake.active", false},
    {"fake.value", 36.0},
};

}  // namespace

TemperatureReader::TemperatureReader(std::string name, const Fenwa::BlockConfiguration& config)
    : DBusClient(temperature_controller.destination, std::move(name),
                 default_configuration + config),
      temperature_out(Fenwa::add_outport<double>(*this, "temperature_out")),
      sensor_id(-1),
      match_added(false),
      delta(0.0),
      change_signal_id(-1) {
    const Fenwa::BlockConfiguration merged = default_configuration + config;
    TemperatureReader::reconfigure(merged, merged);
    // The registration ends with the temporary: the store lists values of the block, not the block.
    Fenwa::debug_data().register_block(*this, merged, {});
    // These two ignore the defaults.
    sensor_name = config.getString("sensor_name");
    delta = config.getDouble("delta_chg");
    if (delta <= 0.0) {
        Fenwa::ilog(static_cast<int>(Level::warning))
            << "Temperature reader disabled by delta_temperature = " << delta;
    }
}

TemperatureReader::~TemperatureReader() = default;

void TemperatureReader::stop() {
    DBusClient::stop();
    match_slot.reset();
    call_slot.reset();
}

void TemperatureReader::reconfigure(const Fenwa::BlockConfiguration& settings,
                                    const Fenwa::BlockConfiguration& /*unused*/) {
    if (settings.getBool("fake.active")) {
        const std::lock_guard lock(fake_mutex);
        fake_temperature = settings.getDouble("fake.value");
    } else {
        fake_temperature.reset();
    }
    wake();
}

void TemperatureReader::on_service_appeared() {
    // A new instance of the service does not know the ids of the last one.
    sensor_id = -1;
    change_signal_id = -1;
}

void TemperatureReader::run_with_service() {
    if (!match_added) {
        if (!match_slot)
            match_change_signal();
        return;
    }
    if (sensor_id < 0) {
        if (!call_slot)
            look_up_sensor();
        return;
    }
    if (change_signal_id < 0) {
        if (!call_slot)
            register_for_changes();
        return;
    }
    if (!temperature && !call_slot)
        fetch_temperature();
    publish_temperature();
}

void TemperatureReader::match_change_signal() {
    const int r = Fenwa::match_signal_async<&TemperatureReader::on_temperature_changed,
                                            &TemperatureReader::on_match_installed>(
        bus(), match_slot, temperature_controller, "TemperatureChangeSignal", *this);
    if (r < 0)
        log_errno(Level::warning, "Failed to add DBus signal callback: ", r);
}

void TemperatureReader::look_up_sensor() {
    const int r = Fenwa::call_async<&TemperatureReader::on_sensor_id>(
        bus(), call_slot, temperature_controller, "GetTemperatureIdFromName", *this, "s",
        sensor_name.c_str());
    if (r < 0)
        log_errno(Level::error, "Failed to call GetTemperatureIdFromName: ", r);
}

void TemperatureReader::register_for_changes() {
    const int r = Fenwa::call_async<&TemperatureReader::on_registered>(
        bus(), call_slot, temperature_controller, "RegisterForTemperatureChangeSignal", *this, "id",
        sensor_id, delta);
    if (r < 0)
        log_errno(Level::error, "Failed to call method RegisterForTemperatureChangeSignal: ", r);
}

void TemperatureReader::fetch_temperature() {
    const int r = Fenwa::call_async<&TemperatureReader::on_temperature>(
        bus(), call_slot, temperature_controller, "GetTemperature", *this, "is", sensor_id,
        sensor_name.c_str());
    // The text of the registration: people search their logs for it.
    if (r < 0)
        log_errno(Level::error, "Failed to call method RegisterForTemperatureChangeSignal: ", r);
}

void TemperatureReader::publish_temperature() {
    const std::lock_guard lock(fake_mutex);
    const std::optional<double> candidate = fake_temperature ? fake_temperature : temperature;
    // NaN differs from everything, so it is published every time.
    if (!candidate || *candidate == temperature_out->value)
        return;
    temperature_out->publish(*candidate);
    // Reserved, so that the key of each value takes one allocation.
    constexpr std::string_view before_id = "temperature_reader_sensor_id";
    constexpr std::string_view after_id = "_current_temperature";
    const std::string id = std::to_string(sensor_id);
    std::string key;
    key.reserve(before_id.size() + id.size() + after_id.size());
    key.append(before_id).append(id).append(after_id);
    Fenwa::debug_data().set_value(std::move(key), static_cast<float>(*candidate));
}

int TemperatureReader::on_match_installed(sd_bus_message* /*reply*/, sd_bus_error* error) {
    // sd-bus passes an empty error argument, so a refused match counts as installed.
    if (sd_bus_error_is_set(error) > 0)
        log_error_argument(Level::error, "Error when adding match for TemperatureSignal: ", *error);
    else
        match_added = true;
    wake();
    return 0;
}

/// An unreadable reply keeps the slot, and the steps then wait for it until the block is stopped.
template <class Value, class Target>
int TemperatureReader::take_reply(sd_bus_message* reply, const sd_bus_error* error,
                                  const BodyTexts& texts, const char* type, Target& target) {
    Value value{};
    if (const int r = read_body(reply, error, texts, type, &value); r < 0)
        return r;
    target = value;
    call_slot.reset();
    wake();
    return 0;
}

int TemperatureReader::on_sensor_id(sd_bus_message* reply, sd_bus_error* error) {
    return take_reply<std::int32_t>(reply, error,
                                    {Level::error, "Error when calling GetTemperatureIdFromName: ",
                                     "Failed to parse sensor id: "},
                                    "i", sensor_id);
}

int TemperatureReader::on_registered(sd_bus_message* reply, sd_bus_error* error) {
    return take_reply<std::int32_t>(reply, error,
                                    {Level::warning, "Error while receiving DBus signal: ",
                                     "Failed to setup temperature change singal: "},
                                    "i", change_signal_id);
}

int TemperatureReader::on_temperature(sd_bus_message* reply, sd_bus_error* error) {
    return take_reply<double>(
        reply, error,
        {Level::warning, "Error while receiving DBus signal: ", "Failed to parse sensor id: "}, "d",
        temperature);
}

int TemperatureReader::on_temperature_changed(sd_bus_message* signal, sd_bus_error* error) {
    const BodyTexts texts{Level::warning, "Error while receiving DBus signal: ",
                          "Failed to setup temperature signal: "};
    std::int32_t id = -1;
    double reading = -999.0;
    if (const int r = read_body(signal, error, texts, "id", &id, &reading); r < 0)
        return r;
    if (id == change_signal_id) {
        temperature = reading;
        wake();
    }
    return 0;
}

}  // namespace blocks
