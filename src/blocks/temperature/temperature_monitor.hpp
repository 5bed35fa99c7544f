#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

#include "fenwa/block.hpp"
#include "fenwa/slot.hpp"
#include "src/frame/owner_match.hpp"

namespace blocks {

/// Judges whether the temperature of one named sensor lies inside a band, and publishes the verdict
/// on the output "temperature_ok_out".
///
/// The first verdict comes from one reading in the constructor, the later ones from the temperature
/// controller's signals, for which the block registers four limits: two switch the verdict on and
/// two switch it off, with a hysteresis at each end of the band.
///
/// Keys: "sensor_name" (string, required), and floats in the controller's unit: "low_on_temp"
/// (-998.0), "low_off_temp" (-1000.0), "high_on_temp" (998.0), "high_off_temp" (1000.0).
///
/// Settings: "temperature_ok", and the terminated input "temp_monitor_in" with the verdict as its
/// default.
///
/// The limits are registered again when the controller's name loses its owner. A reply to a
/// registration that cannot be read, error replies among them, stalls the block until it is
/// stopped: it keeps its last verdict.
class TemperatureMonitor : public Fenwa::Block {
  public:
    /// Makes two blocking calls and logs their failures. After a failure the sensor's id is -1 and
    /// the judged reading is -999.0: inside the default limits, below any real temperature.
    /// @throws Fenwa::ConfigurationError when "sensor_name" is missing or a key is mistyped.
    TemperatureMonitor(std::string name, const Fenwa::BlockConfiguration& config,
                       const Fenwa::InitTools& tools);
    ~TemperatureMonitor() override;

    /// @returns the settings, with the verdict as it is now.
    Fenwa::BlockConfiguration setup(const Fenwa::BlockConfiguration& unused) override;
    void stop() override;
    bool run() override;

  private:
    friend struct LayoutProbe;

    /// The limits, in the order in which they are registered.
    enum Limit : std::size_t { low_on, high_on, low_off, high_off, limit_count };
    /// The direction in which a crossing of each limit counts: true is upwards.
    static constexpr std::array<bool, limit_count> threshold_flags{true, false, false, true};

    void wake() noexcept;
    void look_up_sensor(const Fenwa::InitTools& tools, const std::string& sensor_name);
    /// @param reading not touched on failure.
    /// @returns the reply, empty on failure.
    [[nodiscard]] Fenwa::Message read_temperature(const Fenwa::InitTools& tools,
                                                  const std::string& sensor_name,
                                                  double& reading) const;
    [[nodiscard]] bool inside_band(double reading) const;
    void match_temperature_signal();
    void register_limit(std::size_t limit);
    void judge_signal(std::int32_t id);
    void publish_verdict();
    int confirm_match(const sd_bus_error* error, const char* error_prefix, bool& added);
    int on_owner_match_installed(sd_bus_message* reply, sd_bus_error* error);
    int on_signal_match_installed(sd_bus_message* reply, sd_bus_error* error);
    int on_registered(sd_bus_message* reply, sd_bus_error* error);
    int on_temperature_signal(sd_bus_message* signal, sd_bus_error* error);
    int on_owner_changed(sd_bus_message* signal, sd_bus_error* error);

    Fenwa::EventPort* event_port;
    Fenwa::OutPort<bool>* temperature_ok_out;
    Fenwa::Slot signal_match_slot;
    Fenwa::Slot owner_match_slot;
    Fenwa::Slot call_slot;            ///< the registration under way; kept when it failed
    std::uint32_t registering_index;  ///< the limit that `call_slot` registers
    std::array<double, limit_count> thresholds;
    bool owner_match_added;   ///< the installation of the match has been answered
    bool signal_match_added;  ///< the same
    std::array<bool, limit_count> registered;
    std::deque<std::int32_t> pending_signals;          ///< ids not yet judged, oldest first
    std::int32_t sensor_id;                            ///< the controller's id of the sensor
    std::array<std::int32_t, limit_count> signal_ids;  ///< the controller's id of each limit
    bool temperature_ok;                               ///< the verdict
    bool stopped;

    OwnerMatch owner_match;  ///< what `owner_match_slot` is for
};

}  // namespace blocks
