#include "src/blocks/power/power_consumer.hpp"

#include "fenwa/bus_call.hpp"
#include "fenwa/log.hpp"
#include "fenwa/ports.hpp"
#include "src/blocks/power/power_control.hpp"
#include "src/frame/failure_line.hpp"
#include "src/frame/name_owner.hpp"

namespace blocks {
namespace {

constexpr const char* exported_path = "/com/tarlo/Vipd/PowerConsumer";
constexpr const char* exported_interface = "com.tarlo.Vipd.PowerConsumer";

/// A null string would end the log line.
const char* text_or_nothing(const char* text) {
    return text == nullptr ? "" : text;
}

}  // namespace

const sd_bus_vtable PowerConsumer::exported_methods[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("SetPower", "d", "", Fenwa::Callback<&PowerConsumer::on_set_power>::call,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

PowerConsumer::PowerConsumer(std::string name, const Fenwa::BlockConfiguration& config)
    : Fenwa::Block(std::move(name), config),
      timer_in(Fenwa::add_inport<Fenwa::datatype_timersource>(*this, "timer_in")),
      power_out(Fenwa::add_outport<float>(*this, "power_out")),
      event_port(make_eventport("event_port")),
      channel(config.getInt("channel", 0)),
      service_name("com.tarlo.Vipd.ch" + std::to_string(channel)),
      consumer_name("vipd" + std::to_string(channel)),
      power_request(config.getFloat("power")),
      bus(nullptr),
      registered(false),
      power_requested(false),
      granted_power(0.0F) {
    // The line has no closing quote: people search their logs for this text.
    Fenwa::ilog(static_cast<int>(Level::information))
        << "Adding dbus interface '" << exported_interface << "' on '" << exported_path;
    add_dbus(exported_path, exported_interface, exported_methods, this);
}

PowerConsumer::~PowerConsumer() = default;

void PowerConsumer::stop() {
    match_slot.reset();
    call_slot.reset();
    owner_match.released();
    const int r = Fenwa::call_without_reply(bus, power_control_consumer, "Unregister", "s",
                                            consumer_name.c_str());
    if (r < 0)
        log_errno(Level::error, "Failed to unregister power consumer: ", r);
}

bool PowerConsumer::run() {
    if (bus == nullptr) {
        // Once: a refused match is not tried again.
        bus = Fenwa::bus_of(*this);
        owner_match.install<&PowerConsumer::on_owner_changed>(bus, match_slot, *this);
    }
    if (event_port->is_triggered())
        power_out->publish(granted_power);
    if (!registered && !call_slot)
        register_consumer();
    if (power_requested)
        return true;
    if (registered && !call_slot)
        request_power();
    return true;
}

void PowerConsumer::register_consumer() {
    const int r = Fenwa::call_async<&PowerConsumer::on_registered>(
        bus, call_slot, power_control_consumer, "Register", *this, "sbsss", consumer_name.c_str(),
        static_cast<int>(false), service_name.c_str(), exported_path, exported_interface);
    if (r < 0)
        log_errno(Level::error, "Failed to register consumer: ", r);
}

void PowerConsumer::request_power() {
    const int r = Fenwa::call_async<&PowerConsumer::on_power_requested>(
        bus, call_slot, power_control_consumer, "RequestPower", *this, "ssd", consumer_name.c_str(),
        "control", static_cast<double>(power_request));
    if (r < 0)
        log_errno(Level::error, "Failed to request power: ", r);
}

int PowerConsumer::take_answer(const sd_bus_error* error, const char* error_prefix,
                               std::atomic<bool>& answered) {
    // sd-bus passes an empty error argument, so an error reply counts as an answer.
    if (sd_bus_error_is_set(error) > 0)
        log_error_argument(Level::warning, error_prefix, *error);
    else
        answered = true;
    call_slot.reset();
    event_port->fire();
    return 0;
}

int PowerConsumer::on_registered(sd_bus_message* /*reply*/, sd_bus_error* error) {
    return take_answer(error, "Error when register power consumer: ", registered);
}

int PowerConsumer::on_power_requested(sd_bus_message* /*reply*/, sd_bus_error* error) {
    return take_answer(error, "Error when requesting power: ", power_requested);
}

int PowerConsumer::on_owner_changed(sd_bus_message* signal, sd_bus_error* /*error*/) {
    OwnerChange change;
    if (const int r = read_owner_change(signal, change); r < 0)
        return r;
    if (!change.is_of(power_control_consumer.destination))
        return 0;
    Fenwa::ilog(static_cast<int>(Level::information))
        << "Owner of '" << change.name << "' changed from '" << text_or_nothing(change.old_owner)
        << "' to '" << text_or_nothing(change.new_owner) << "'";
    if (change.lost()) {
        registered = false;
        power_requested = false;
        event_port->fire();
    }
    return 0;
}

int PowerConsumer::on_set_power(sd_bus_message* call, sd_bus_error* /*error*/) {
    double power = 0.0;
    if (const int r = sd_bus_message_read(call, "d", &power); r < 0) {
        log_errno(Level::error, "Failed to parse parameters: ", r);
        return r;
    }
    // A value outside the range of a float becomes an infinity.
    granted_power = static_cast<float>(power);
    event_port->fire();
    return sd_bus_reply_method_return(call, "");
}

}  // namespace blocks
