#pragma once

#include <string>

#include "tests/unit/block_fixture.hpp"

extern template class support::BlockFixture<blocks::PowerConsumer>;

namespace consumer_test {

using blocks::PowerConsumer;
using support::Journal;
using support::wake_up;

/// A call of the power controller, with its arguments.
inline std::string controller_call(const std::string& call) {
    return support::service_call("com.tarlo.PowerControl.Consumer",
                                 "/com/tarlo/PowerControl/Consumer", call);
}

// The calls and the match of a consumer, on channel 0 unless another is given.
inline const std::string owner_match = "blocking " + support::owner_match;
inline std::string registration_of(const std::string& channel) {
    return controller_call("Register(s \"vipd" + channel + "\", b false, s \"com.tarlo.Vipd.ch" +
                           channel +
                           "\", s \"/com/tarlo/Vipd/PowerConsumer\", "
                           "s \"com.tarlo.Vipd.PowerConsumer\")");
}
inline std::string request_of(const std::string& channel, const std::string& power = "12.5") {
    return controller_call("RequestPower(s \"vipd" + channel + "\", s \"control\", d " + power +
                           ")");
}
inline std::string deregistration_of(const std::string& channel) {
    return controller_call("Unregister(s \"vipd" + channel + "\") without reply");
}
inline const std::string registration = registration_of("0");
inline const std::string request = request_of("0");
inline const std::string deregistration = deregistration_of("0");

/// People search their logs for this line, the missing quote included.
inline const std::string announcement =
    "4 Adding dbus interface 'com.tarlo.Vipd.PowerConsumer' on '/com/tarlo/Vipd/PowerConsumer";
inline const Journal construction{
    "input timer_in",
    "output power_out",
    "event event_port",
    "int channel or a default",
    "float power",
    announcement,
    "export /com/tarlo/Vipd/PowerConsumer com.tarlo.Vipd.PowerConsumer"};

inline const std::string fired = "fire event_port";
inline std::string publication(const std::string& power) {
    return "publish power_out = " + power;
}
inline const std::string nothing_granted = publication("0");
/// The effects of a grant.
inline const Journal granted{fired, "answer \"\"() = 1", "returns 1"};
inline std::string owner_line(const std::string& from, const std::string& to) {
    return "4 Owner of 'com.tarlo.PowerControl.Consumer' changed from '" + from + "' to '" + to +
           "'";
}

class PowerConsumerTest : public support::BlockFixture<PowerConsumer> {
  protected:
    void make(const Fenwa::BlockConfiguration& more = {}) {
        build("consumer", support::observed(Fenwa::BlockConfiguration{{"power", 12.5}} + more));
        EXPECT_EQ(take(), construction);
    }

    // Each builds a block and takes it up to a call of the controller.

    /// The match is sending 1, the registration sending 2.
    void enlist() {
        make();
        EXPECT_EQ(run(), (Journal{owner_match, registration}));
    }
    /// The request is sending 3.
    void ask() {
        enlist();
        answer();
        EXPECT_EQ(run_woken(), (Journal{nothing_granted, request}));
    }
    /// ... and up to where nothing is left to do.
    void settle() {
        ask();
        answer();
        EXPECT_EQ(run_woken(), Journal{nothing_granted});
    }

    /// Answers the pending call.
    void answer() {
        EXPECT_EQ(deliver(bus.last(), messages.reply("")),
                  (Journal{bus.last().release_text, fired}));
        EXPECT_FALSE(call_pending());
    }
    Journal change_owner(const char* old_owner, const char* new_owner,
                         const char* name = "com.tarlo.PowerControl.Consumer") {
        return deliver(bus.sending(1), messages.owner_change(name, old_owner, new_owner));
    }
    void lose_controller() {
        EXPECT_EQ(change_owner(":1.5", ""), (Journal{owner_line(":1.5", ""), fired}));
    }

    template <class... Values>
    support::Message grant(const char* types, Values... values) {
        return messages.call("/com/tarlo/Vipd/PowerConsumer", "com.tarlo.Vipd.PowerConsumer",
                             "SetPower", types, values...);
    }
    /// Calls the exported method's handler, as sd-bus does with a message of its own.
    Journal set_power(sd_bus_message* call, const sd_bus_error& error = SD_BUS_ERROR_NULL) {
        return effects_of([&] {
            return support::call_back(LayoutProbe::exported_methods()[1].x.method.handler, call,
                                      &block(), error);
        });
    }
    Journal set_power(double power) { return set_power(grant("d", power)); }

    bool registered() { return LayoutProbe::registered(block()); }
    bool power_requested() { return LayoutProbe::power_requested(block()); }
};

}  // namespace consumer_test
