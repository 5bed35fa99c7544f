#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/support/block_driver.hpp"
#include "tests/support/layout_probe.hpp"

namespace consumer_test {

using blocks::LayoutProbe;
using blocks::PowerConsumer;
using Journal = std::vector<std::string>;
using Lines = std::vector<std::string>;

/// A call of the power controller, with its arguments.
inline std::string controller_call(const std::string& call) {
    return "call com.tarlo.PowerControl.Consumer /com/tarlo/PowerControl/Consumer "
           "com.tarlo.PowerControl.Consumer " +
           call;
}

// What a consumer on channel 0 sends that asks for 12.5.
inline const std::string owner_match =
    "blocking match type='signal',interface='org.freedesktop.DBus',member='NameOwnerChanged'";
inline const std::string registration = controller_call(
    "Register(s \"vipd0\", b false, s \"com.tarlo.Vipd.ch0\", "
    "s \"/com/tarlo/Vipd/PowerConsumer\", s \"com.tarlo.Vipd.PowerConsumer\")");
inline const std::string request =
    controller_call("RequestPower(s \"vipd0\", s \"control\", d 12.5)");
inline const std::string deregistration = controller_call("Unregister(s \"vipd0\") without reply");

/// The one line of a construction; people search their logs for it, the missing quote included.
inline const std::string announcement =
    "4 Adding dbus interface 'com.tarlo.Vipd.PowerConsumer' on '/com/tarlo/Vipd/PowerConsumer";

class PowerConsumerTest : public support::BlockTest {
  protected:
    void make(const Fenwa::BlockConfiguration& more = {}) {
        consumer.emplace(recorders.tools, "consumer",
                         Fenwa::BlockConfiguration{{"power", 12.5}} + more);
        EXPECT_EQ(log.take(), (Lines{announcement}));
        EXPECT_FALSE(consumer->woken());
    }

    /// A run for another reason than the event port, with what the block sends in it.
    Journal run() {
        EXPECT_TRUE((*consumer)->run());
        return bus.take_journal();
    }
    /// A run because the event port has been fired.
    Journal run_woken() {
        EXPECT_TRUE(consumer->run_woken());
        return bus.take_journal();
    }

    // Each takes the block one step further.

    /// The first run: the match is sending 1, the registration sending 2.
    void begin() { EXPECT_EQ(run(), (Journal{owner_match, registration})); }
    /// Answers the pending call.
    void answer() {
        EXPECT_EQ(bus.last().deliver(messages.reply("")), 0);
        EXPECT_EQ(bus.take_journal(), (Journal{bus.last().release_text}));
        EXPECT_FALSE(call_pending());
    }
    void enlist() {
        begin();
        answer();
    }
    /// ... and up to the state in which the controller has been asked for power.
    void ask() {
        enlist();
        EXPECT_EQ(run_woken(), (Journal{request}));
        answer();
        EXPECT_EQ(run_woken(), Journal{});
        (void)published();
    }

    template <class... Values>
    support::Message owner_change(const char* types, Values... values) {
        return messages.signal("/org/freedesktop/DBus", "org.freedesktop.DBus", "NameOwnerChanged",
                               types, values...);
    }
    /// Tells the block that the controller is gone.
    void lose_controller() {
        EXPECT_EQ(bus.sending(1).deliver(
                      owner_change("sss", "com.tarlo.PowerControl.Consumer", ":1.5", "")),
                  0);
        EXPECT_EQ(
            log.take(),
            (Lines{"4 Owner of 'com.tarlo.PowerControl.Consumer' changed from ':1.5' to ''"}));
    }

    /// Calls the exported method's handler, as sd-bus does with a message of its own.
    int set_power(sd_bus_message* message) {
        return support::call_back(LayoutProbe::exported_methods()[1].x.method.handler, message,
                                  &**consumer, SD_BUS_ERROR_NULL);
    }
    template <class... Values>
    support::Message grant(const char* types, Values... values) {
        return messages.call("/com/tarlo/Vipd/PowerConsumer", "com.tarlo.Vipd.PowerConsumer",
                             "SetPower", types, values...);
    }
    /// Grants the block this much power.
    void set_power(double power) {
        const auto call = grant("d", power);
        EXPECT_EQ(set_power(call), 1);
        EXPECT_EQ(bus.answered(), call);
        EXPECT_EQ(bus.take_journal(), (Journal{"answer \"\"() = 1"}));
    }

    Fenwa::OutPort<float>& port() {
        return *dynamic_cast<Fenwa::OutPort<float>*>((*consumer)->get_outport("power_out"));
    }
    /// The value that the last run published, if it did.
    std::optional<float> published() {
        const bool any = !journal.take(support::effect::publication).empty();
        return any ? std::optional(port().value) : std::nullopt;
    }

    [[nodiscard]] bool call_pending() {
        return *LayoutProbe::call_slot_field(**consumer) != nullptr;
    }
    [[nodiscard]] bool match_held() {
        return *LayoutProbe::match_slot_field(**consumer) != nullptr;
    }

    std::optional<support::BlockDriver<PowerConsumer>> consumer;
};

}  // namespace consumer_test
