#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "src/frame/dbus_client.hpp"
#include "src/frame/failure_line.hpp"

namespace blocks {

/// Publishes the readings of one named temperature sensor on the output "temperature_out", in the
/// temperature controller's unit, and mirrors each into the debug-data store.
///
/// Keys: "sensor_name" (string, required), "delta_chg" (double, required: the least change that
/// the controller reports), "fake.active" (bool, false) and "fake.value" (double, 36.0), which is
/// published instead of readings once the sensor is registered.
///
/// A reply that cannot be read, error replies among them, stalls the block until it is stopped.
class TemperatureReader : public DBusClient {
  public:
    /// @throws Fenwa::ConfigurationError when a required key is missing or a key is mistyped.
    TemperatureReader(std::string name, const Fenwa::BlockConfiguration& config);
    ~TemperatureReader() override;

    void stop() override;
    /// Takes "fake.active" and "fake.value" from `settings`; the constructor reads the other keys.
    void reconfigure(const Fenwa::BlockConfiguration& settings,
                     const Fenwa::BlockConfiguration& unused) override;
    void on_service_appeared() override;
    void run_with_service() override;

  private:
    friend struct LayoutProbe;

    void match_change_signal();
    void look_up_sensor();
    void register_for_changes();
    void fetch_temperature();
    void publish_temperature();
    int on_match_installed(sd_bus_message* reply, sd_bus_error* error);
    template <class Value, class Target>
    int take_reply(sd_bus_message* reply, const sd_bus_error* error, const BodyTexts& texts,
                   const char* type, Target& target);
    int on_sensor_id(sd_bus_message* reply, sd_bus_error* error);
    int on_registered(sd_bus_message* reply, sd_bus_error* error);
    int on_temperature(sd_bus_message* reply, sd_bus_error* error);
    int on_temperature_changed(sd_bus_message* signal, sd_bus_error* error);

    Fenwa::OutPort<double>* temperature_out;
    std::string sensor_name;
    std::int32_t sensor_id;         ///< the controller's id of the sensor; -1 while unknown
    bool match_added;               ///< the installation of the match has been answered
    double delta;                   ///< least change that the controller reports
    std::int32_t change_signal_id;  ///< -1 while not registered
    /// Guards storing the fake temperature, and publishing. The callbacks write the other members
    /// without it, and clearing the fake temperature is outside it.
    std::mutex fake_mutex;
    std::optional<double> temperature;       ///< last reading; empty until the first one
    std::optional<double> fake_temperature;  ///< engaged while "fake.active" is true
    Fenwa::Slot match_slot;
    Fenwa::Slot call_slot;  ///< the one outstanding call; kept when its reply could not be read
};

}  // namespace blocks
