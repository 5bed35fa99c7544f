#include "src/blocks/power/power_monitor.hpp"

#include <cstring>
#include <ostream>

#include "fenwa/bus_call.hpp"
#include "fenwa/log.hpp"
#include "fenwa/ports.hpp"
#include "src/blocks/power/power_control.hpp"
#include "src/frame/failure_line.hpp"
#include "src/frame/verdict_settings.hpp"

namespace blocks {
namespace {

// Without a lock-free double a handler would wait for a lock of libatomic, which the library does
// not need otherwise.
static_assert(std::atomic<double>::is_always_lock_free);

constexpr const char* property = "PowerReceived";
constexpr const char* read_failure_prefix = "Failed to read value of PowerReceived: ";
constexpr const char* change_rule =
    "type='signal',interface='org.freedesktop.DBus.Properties',"
    "path='/com/tarlo/PowerControl/Status',member='PropertiesChanged'";

/// The power controller's status object, seen through its properties.
constexpr Fenwa::BusService status_properties{
    power_control_status.destination, power_control_status.path, "org.freedesktop.DBus.Properties"};

/// After this many failures in a row the block no longer wakes itself to try again.
constexpr int max_retries = 10;

/// One error line that carries its own line end.
template <class... Pieces>
void log_ended_line(const Pieces&... pieces) {
    Fenwa::ilog line(static_cast<int>(Level::error));
    (line << ... << pieces) << std::endl;
}

/// End of every callback whose signal is not broken: answers the message. Nothing is sent, because
/// neither a reply nor a signal can be answered; the result is negative.
int answer(sd_bus_message* message) {
    return sd_bus_reply_method_return(message, nullptr);
}

}  // namespace

PowerMonitor::PowerMonitor(std::string name, const Fenwa::BlockConfiguration& config,
                           const Fenwa::InitTools& tools)
    : Fenwa::Block(std::move(name), config),
      power_ok_out(Fenwa::add_outport<bool>(*this, "power_ok_out")),
      event_port(make_eventport("event_port")),
      requested_power(config.getFloat("requested_power")),
      received_power(0.0),
      match_added(false),
      value_received(false),
      stopped(false),
      retry_count(0) {
    const Fenwa::Message reply = read_power(tools);
    wake();
}

PowerMonitor::~PowerMonitor() = default;

Fenwa::BlockConfiguration PowerMonitor::setup(const Fenwa::BlockConfiguration& /*unused*/) {
    return verdict_settings("power_ok", "power_monitor_in", power_ok());
}

void PowerMonitor::stop() {
    stopped = true;
    match_slot.reset();
    call_slot.reset();
}

bool PowerMonitor::run() {
    if (!match_added)
        match_property_changes();
    else if (!value_received)
        query_power();
    power_ok_out->publish(power_ok());
    return true;
}

bool PowerMonitor::power_ok() const noexcept {
    return requested_power <= received_power;
}

void PowerMonitor::wake() noexcept {
    if (!stopped)
        event_port->fire();
}

Fenwa::Message PowerMonitor::read_power(const Fenwa::InitTools& tools) {
    Fenwa::Message reply;
    try {
        tools.sdbus_tools->get_property(power_control_status.destination, power_control_status.path,
                                        power_control_status.interface, property, reply.out(), "d");
    } catch (const std::exception& error) {
        log_exception(Level::error,
                      "Failed to get PowerReceived from com.tarlo.PowerControl.Status. ", error);
    }
    double power = 0.0;
    if (sd_bus_message_read(reply.get(), "d", &power) < 0)
        log_ended_line("Failed to get PowerReceived from dbus reply.");
    received_power.exchange(power);
    return reply;
}

void PowerMonitor::match_property_changes() {
    // A run during the installation replaces the match.
    const int r = Fenwa::match_rule_async<&PowerMonitor::on_properties_changed,
                                          &PowerMonitor::on_match_installed>(
        Fenwa::bus_of(*this), match_slot, change_rule, *this);
    if (r < 0)
        log_errno(Level::error, "Failed to send properties changed signal handler request: ", r);
}

void PowerMonitor::query_power() {
    const int r = Fenwa::call_async<&PowerMonitor::on_power>(
        Fenwa::bus_of(*this), call_slot, status_properties, "Get", *this, "ss",
        power_control_status.interface, property);
    if (r < 0)
        log_errno(Level::error, "Failed to query PowerReceived: ", r);
}

void PowerMonitor::retry() noexcept {
    if (retry_count++ < max_retries)
        wake();
}

int PowerMonitor::on_match_installed(sd_bus_message* reply, sd_bus_error* error) {
    // sd-bus passes an empty error argument, so a refused match counts as installed.
    if (sd_bus_error_is_set(error) > 0) {
        log_error_argument(Level::error, "Failed to add match for PowerReceived: ", *error);
        retry();
        return answer(reply);
    }
    retry_count = 0;
    match_added = true;
    wake();
    return answer(reply);
}

int PowerMonitor::on_power(sd_bus_message* reply, sd_bus_error* error) {
    if (sd_bus_error_is_set(error) > 0) {
        log_error_argument(Level::error, "Failed to get PowerReceived: ", *error);
        retry();
        return answer(reply);
    }
    double power = 0.0;
    if (const int r = sd_bus_message_read(reply, "v", "d", &power); r <= 0) {
        retry();
        log_errno(Level::error, read_failure_prefix, r);
        return answer(reply);
    }
    value_received = true;
    retry_count = 0;
    received_power.exchange(power);
    wake();
    return answer(reply);
}

int PowerMonitor::on_properties_changed(sd_bus_message* signal, sd_bus_error* error) {
    if (sd_bus_error_is_set(error) > 0) {
        log_error_argument(Level::error, "Failed to get match for PowerReceived: ", *error);
        return -1;
    }
    if (sd_bus_message_skip(signal, "s") < 0 ||
        sd_bus_message_enter_container(signal, SD_BUS_TYPE_ARRAY, "{sv}") <= 0) {
        log_ended_line("Failed to enter container");
        return -1;
    }
    while (sd_bus_message_enter_container(signal, SD_BUS_TYPE_DICT_ENTRY, "sv") > 0) {
        const char* name = nullptr;
        if (sd_bus_message_read(signal, "s", &name) <= 0) {
            log_ended_line("Failed to read property name");
            return -1;
        }
        if (std::strcmp(name, property) != 0) {
            if (const int r = sd_bus_message_skip(signal, "v"); r < 0) {
                log_ended_line("Failed to skip message: ", std::strerror(-r));
                return -1;
            }
            if (sd_bus_message_exit_container(signal) < 0) {
                log_ended_line("Failed to exit container for: ", name);
                return -1;
            }
            continue;
        }
        if (sd_bus_message_enter_container(signal, SD_BUS_TYPE_VARIANT, "d") <= 0)
            continue;
        double power = 0.0;
        if (const int r = sd_bus_message_read(signal, "d", &power); r <= 0) {
            log_ended_line(read_failure_prefix, std::strerror(-r));
            return -1;
        }
        received_power.exchange(power);
        if (sd_bus_message_exit_container(signal) < 0)
            log_ended_line("Failed to exit container for: ", name);
        // The entry stays open, so the next enter fails in it and ends the loop: the entries after
        // the property are not needed.
    }
    wake();
    return answer(signal);
}

}  // namespace blocks
