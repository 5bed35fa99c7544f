#pragma once

#include <atomic>
#include <string>

#include "fenwa/block.hpp"
#include "fenwa/slot.hpp"
#include "src/frame/owner_match.hpp"

namespace blocks {

/// Takes part in the camera's power budget for one video channel: registers with the power
/// controller, requests a fixed amount of power, and publishes the granted power on the output
/// "power_out", in the controller's unit.
///
/// Keys: "channel" (int, 0) and "power" (float, required: the requested amount).
///
/// The controller grants power by calling the object that the block exports; the host must own the
/// bus name of that object, "com.tarlo.Vipd.chN". Path and interface are the same for every
/// channel, so a connection can have one such block.
///
/// An error reply to a registration or request counts as an answer. The input "timer_in" is never
/// read: it makes the framework run the block from time to time.
class PowerConsumer : public Fenwa::Block {
  public:
    /// @throws Fenwa::ConfigurationError when "power" is missing or a key is mistyped.
    PowerConsumer(std::string name, const Fenwa::BlockConfiguration& config);
    ~PowerConsumer() override;

    /// Unregisters, whether or not the block ever registered.
    void stop() override;
    bool run() override;

  private:
    friend struct LayoutProbe;

    static const sd_bus_vtable exported_methods[];

    void register_consumer();
    void request_power();
    int take_answer(const sd_bus_error* error, const char* error_prefix,
                    std::atomic<bool>& answered);
    int on_registered(sd_bus_message* reply, sd_bus_error* error);
    int on_power_requested(sd_bus_message* reply, sd_bus_error* error);
    int on_owner_changed(sd_bus_message* signal, sd_bus_error* error);
    int on_set_power(sd_bus_message* call, sd_bus_error* error);

    Fenwa::InPort<Fenwa::datatype_timersource>* timer_in;
    Fenwa::OutPort<float>* power_out;
    Fenwa::EventPort* event_port;
    int channel;
    std::string service_name;   ///< where the controller finds the exported object
    std::string consumer_name;  ///< the controller's name of the consumer
    float power_request;
    sd_bus* bus;  ///< the framework's connection, from the first run on
    Fenwa::Slot match_slot;
    Fenwa::Slot call_slot;              ///< the one outstanding call
    std::atomic<bool> registered;       ///< the registration has been answered
    std::atomic<bool> power_requested;  ///< the request has been answered
    std::atomic<float> granted_power;   ///< last value that the controller has set

    OwnerMatch owner_match;  ///< what `match_slot` is for
};

}  // namespace blocks
