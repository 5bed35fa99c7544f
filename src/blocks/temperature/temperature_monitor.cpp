#include "src/blocks/temperature/temperature_monitor.hpp"

#include <algorithm>
#include <ostream>

#include "fenwa/bus_call.hpp"
#include "fenwa/log.hpp"
#include "fenwa/ports.hpp"
#include "fenwa/sdbus_error.hpp"
#include "src/blocks/temperature/temperature_controller.hpp"
#include "src/frame/failure_line.hpp"
#include "src/frame/name_owner.hpp"
#include "src/frame/verdict_settings.hpp"

namespace blocks {
namespace {

constexpr const char* signal_error_prefix = "Error while receiving DBus signal: ";

/// Makes a blocking call of the temperature controller, and logs a failure.
/// @returns the reply, empty on failure.
template <class... Arguments>
Fenwa::Message call_controller(const Fenwa::InitTools& tools, const char* failure_prefix,
                               const char* member, const char* types, Arguments... arguments) {
    Fenwa::Message reply;
    try {
        tools.sdbus_tools->call_method(
            temperature_controller.destination, temperature_controller.path,
            temperature_controller.interface, member, reply.out(), types, arguments...);
    } catch (const Fenwa::SDBusError& error) {
        log_exception(Level::warning, failure_prefix, error);
    }
    return reply;
}

/// Reads one value of a reply, also of an empty one, and logs a failure.
template <class Value>
void read_value(const Fenwa::Message& reply, const char* type, Value& value) {
    // The text is that of the sensor's id for the temperature too: people search their logs for it.
    if (const int r = sd_bus_message_read(reply.get(), type, &value); r < 0)
        log_errno(Level::warning, "Failed to parse sensor id: ", r);
}

}  // namespace

TemperatureMonitor::TemperatureMonitor(std::string name, const Fenwa::BlockConfiguration& config,
                                       const Fenwa::InitTools& tools)
    : Fenwa::Block(std::move(name), config),
      event_port(make_eventport("event_port")),
      temperature_ok_out(Fenwa::add_outport<bool>(*this, "temperature_ok_out")),
      registering_index(0),
      thresholds{},
      owner_match_added(false),
      signal_match_added(false),
      registered{},
      sensor_id(-1),
      signal_ids{},
      temperature_ok(false),
      stopped(false) {
    const std::string sensor_name = config.getString("sensor_name");
    thresholds.at(low_on) = config.getFloat("low_on_temp", -998.0F);
    thresholds.at(low_off) = config.getFloat("low_off_temp", -1000.0F);
    thresholds.at(high_on) = config.getFloat("high_on_temp", 998.0F);
    thresholds.at(high_off) = config.getFloat("high_off_temp", 1000.0F);
    look_up_sensor(tools, sensor_name);
    double reading = -999.0;
    const Fenwa::Message reply = read_temperature(tools, sensor_name, reading);
    temperature_ok = inside_band(reading);
    temperature_ok_out->publish(temperature_ok);
    wake();
}

TemperatureMonitor::~TemperatureMonitor() = default;

Fenwa::BlockConfiguration TemperatureMonitor::setup(const Fenwa::BlockConfiguration& /*unused*/) {
    return verdict_settings("temperature_ok", "temp_monitor_in", temperature_ok);
}

void TemperatureMonitor::stop() {
    stopped = true;
    signal_match_slot.reset();
    owner_match_slot.reset();
    call_slot.reset();
    owner_match.released();
}

bool TemperatureMonitor::run() {
    if (!owner_match_added) {
        if (!owner_match_slot) {
            owner_match.install_async<&TemperatureMonitor::on_owner_changed,
                                      &TemperatureMonitor::on_owner_match_installed>(
                Fenwa::bus_of(*this), owner_match_slot, *this);
        }
        return true;
    }
    if (!signal_match_added) {
        if (!signal_match_slot)
            match_temperature_signal();
        return true;
    }
    for (std::size_t limit = 0; limit < limit_count; ++limit) {
        if (registered.at(limit))
            continue;
        if (!call_slot)
            register_limit(limit);
        return true;
    }
    for (; !pending_signals.empty(); pending_signals.pop_front())
        judge_signal(pending_signals.front());
    publish_verdict();
    return true;
}

void TemperatureMonitor::wake() noexcept {
    if (!stopped)
        event_port->fire();
}

void TemperatureMonitor::look_up_sensor(const Fenwa::InitTools& tools,
                                        const std::string& sensor_name) {
    const Fenwa::Message reply =
        call_controller(tools, "Failed to lookup sensor id: ", "GetTemperatureIdFromName", "s",
                        sensor_name.c_str());
    read_value(reply, "i", sensor_id);
}

Fenwa::Message TemperatureMonitor::read_temperature(const Fenwa::InitTools& tools,
                                                    const std::string& sensor_name,
                                                    double& reading) const {
    Fenwa::Message reply = call_controller(tools, "Failed to read temperature: ", "GetTemperature",
                                           "is", sensor_id, sensor_name.c_str());
    read_value(reply, "d", reading);
    return reply;
}

bool TemperatureMonitor::inside_band(double reading) const {
    // NaN, which is neither below nor above anything, is inside.
    if (thresholds.at(low_off) >= reading)
        return false;
    return !(reading > thresholds.at(high_off));
}

void TemperatureMonitor::match_temperature_signal() {
    const int r = Fenwa::match_signal_async<&TemperatureMonitor::on_temperature_signal,
                                            &TemperatureMonitor::on_signal_match_installed>(
        Fenwa::bus_of(*this), signal_match_slot, temperature_controller, "TemperatureSignal",
        *this);
    if (r < 0)
        log_errno(Level::warning, "Failed to add DBus signal callback: ", r);
}

void TemperatureMonitor::register_limit(std::size_t limit) {
    registering_index = static_cast<std::uint32_t>(limit);
    const int r = Fenwa::call_async<&TemperatureMonitor::on_registered>(
        Fenwa::bus_of(*this), call_slot, temperature_controller, "RegisterForTemperatureSignal",
        *this, "idb", sensor_id, thresholds.at(limit), static_cast<int>(threshold_flags.at(limit)));
    if (r < 0)
        log_errno(Level::error, "Failed to RegisterForTemperatureSignal: ", r);
}

void TemperatureMonitor::judge_signal(std::int32_t id) {
    // An id of both an "off" limit and an "on" limit means "off".
    if (id == signal_ids.at(low_off) || id == signal_ids.at(high_off))
        temperature_ok = false;
    else if (id == signal_ids.at(low_on) || id == signal_ids.at(high_on))
        temperature_ok = true;
    else
        Fenwa::ilog(static_cast<int>(Level::information))
            << "Got unexpected temperature signal with id = " << id << std::endl;
}

void TemperatureMonitor::publish_verdict() {
    if (temperature_ok == temperature_ok_out->value)
        return;
    Fenwa::ilog(static_cast<int>(Level::information))
        << "Setting temperature_ok_out = " << (temperature_ok ? "true" : "false");
    temperature_ok_out->publish(temperature_ok);
}

int TemperatureMonitor::confirm_match(const sd_bus_error* error, const char* error_prefix,
                                      bool& added) {
    // sd-bus passes an empty error argument, so a refused match counts as installed.
    int r = 0;
    if (sd_bus_error_is_set(error) > 0)
        r = log_error_argument(Level::error, error_prefix, *error);
    else
        added = true;
    wake();
    return r;
}

int TemperatureMonitor::on_owner_match_installed(sd_bus_message* reply, sd_bus_error* error) {
    // For the other blocks: in this one a refused match counts as installed.
    owner_match.answered(sd_bus_message_is_method_error(reply, nullptr) == 0);
    return confirm_match(error,
                         "Error when adding match for NameOwnerChanged: ", owner_match_added);
}

int TemperatureMonitor::on_signal_match_installed(sd_bus_message* /*reply*/, sd_bus_error* error) {
    return confirm_match(error,
                         "Error when adding match for TemperatureSignal: ", signal_match_added);
}

int TemperatureMonitor::on_registered(sd_bus_message* reply, sd_bus_error* error) {
    const BodyTexts texts{Level::error, "Error when calling RegisterForTemperatureSignal: ",
                          "Failed to read temperature signal result: "};
    std::int32_t id = -1;
    int already_crossed = 0;  // sd-bus writes a boolean as an int
    // An unreadable reply keeps the slot, and the registration then waits for it for good.
    if (const int r = read_body(reply, error, texts, "ib", &id, &already_crossed); r < 0)
        return r;
    registered.at(registering_index) = true;
    signal_ids.at(registering_index) = id;
    if (already_crossed != 0)
        pending_signals.push_back(id);
    call_slot.reset();
    wake();
    return 0;
}

int TemperatureMonitor::on_temperature_signal(sd_bus_message* signal, sd_bus_error* error) {
    const BodyTexts texts{Level::warning, signal_error_prefix,
                          "Failed to setup temperature signal: "};
    std::int32_t id = -1;
    if (const int r = read_body(signal, error, texts, "i", &id); r < 0)
        return r;
    pending_signals.push_back(id);
    wake();
    return 0;
}

int TemperatureMonitor::on_owner_changed(sd_bus_message* signal, sd_bus_error* error) {
    if (sd_bus_error_is_set(error) > 0)
        return log_error_argument(Level::warning, signal_error_prefix, *error);
    OwnerChange change;
    if (const int r = read_owner_change(signal, change); r < 0)
        return r;
    // A new controller needs nothing here: the registration is tried from the loss of the old one
    // on.
    if (change.is_of(temperature_controller.destination) && change.lost()) {
        registered.fill(false);
        wake();
    }
    return 0;
}

}  // namespace blocks
