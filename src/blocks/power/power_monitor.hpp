#pragma once

#include <atomic>
#include <string>

#include "fenwa/block.hpp"
#include "src/frame/sdbus_handle.hpp"

namespace blocks {

/// Watches how much power the camera receives, and publishes on the output "power_ok_out" whether
/// that is at least what the graph needs; equality is enough, NaN on either side is not.
///
/// Key: "requested_power" (float, required), in the power controller's unit.
///
/// Settings: "power_ok", and the terminated input "power_monitor_in" with the outcome as its
/// default.
///
/// The callbacks return what answering a message that wants no answer gives, a negative value: for
/// a signal, sd-bus then hands it to no further match of the connection, so of several such blocks
/// in one host only the one whose match was installed last hears of changes. Owner changes are not
/// followed: a service that is gone leaves the last outcome standing.
class PowerMonitor : public Fenwa::Block {
  public:
    /// Makes one blocking call; when it fails that is logged, and no power counts as received.
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
    Message read_power(const Fenwa::InitTools& tools);
    void match_property_changes();
    void query_power();
    void retry() noexcept;
    int on_match_installed(sd_bus_message* reply, sd_bus_error* error);
    int on_power(sd_bus_message* reply, sd_bus_error* error);
    int on_properties_changed(sd_bus_message* signal, sd_bus_error* error);

    Fenwa::OutPort<bool>* power_ok_out;
    Fenwa::EventPort* event_port;
    Slot match_slot;
    Slot call_slot;  ///< the query under way
    double requested_power;
    std::atomic<double> received_power;  ///< last value of the property; 0 before the first
    bool match_added;                    ///< the installation of the match has been answered
    bool value_received;                 ///< the query has been answered with a value
    bool stopped;
    int retry_count;  ///< failures in a row of the match or the query
};

}  // namespace blocks
