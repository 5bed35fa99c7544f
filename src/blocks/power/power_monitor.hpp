#pragma once

#include <atomic>
#include <string>

#include "fenwa/block.hpp"
#include "fenwa/slot.hpp"

namespace blocks {

/// Watches the power that the camera receives, and publishes on the output "power_ok_out" whether
/// it is at least the power that the graph needs; equality is enough, NaN on either side is not.
///
/// Key: "requested_power" (float, required), in the power controller's unit.
///
/// Settings: "power_ok", and the terminated input "power_monitor_in" with the outcome as its
/// default.
///
/// The callbacks return the result of answering a message that expects no answer, a negative value.
/// sd-bus then delivers a signal to no further match of the connection, so of several such blocks
/// in one host only the one whose match was installed last receives changes. Owner changes are not
/// followed: the last outcome stays after the service is gone.
class PowerMonitor : public Fenwa::Block {
  public:
    /// Makes one blocking call; a failure is logged and counts as no power.
    /// @throws Fenwa::ConfigurationError when "requested_power" is missing or mistyped.
    PowerMonitor(std::string name, const Fenwa::BlockConfiguration& config,
                 const Fenwa::InitTools& tools);
    ~PowerMonitor() override;

    /// @returns the settings, with the outcome as it is now.
    Fenwa::BlockConfiguration setup(const Fenwa::BlockConfiguration& unused) override;
    void stop() override;
    bool run() override;

  private:
    friend struct LayoutProbe;

    [[nodiscard]] bool power_ok() const noexcept;
    void wake() noexcept;
    /// @returns the reply, empty on failure.
    Fenwa::Message read_power(const Fenwa::InitTools& tools);
    void match_property_changes();
    void query_power();
    void retry() noexcept;
    int on_match_installed(sd_bus_message* reply, sd_bus_error* error);
    int on_power(sd_bus_message* reply, sd_bus_error* error);
    int on_properties_changed(sd_bus_message* signal, sd_bus_error* error);

    Fenwa::OutPort<bool>* power_ok_out;
    Fenwa::EventPort* event_port;
    Fenwa::Slot match_slot;
    Fenwa::Slot call_slot;  ///< the query under way
    double requested_power;
    std::atomic<double> received_power;  ///< last value of the property; 0 before the first
    bool match_added;                    ///< the installation of the match has been answered
    bool value_received;                 ///< the query has been answered with a value
    bool stopped;
    int retry_count;  ///< failures in a row of the match or the query
};

}  // namespace blocks
