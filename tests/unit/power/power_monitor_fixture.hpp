#pragma once

#include <string>

#include "tests/unit/block_fixture.hpp"

extern template class support::BlockFixture<blocks::PowerMonitor>;

namespace monitor_test {

using blocks::PowerMonitor;
using support::infinity;
using support::Journal;
using support::not_a_number;

// The read, the match and the call of a monitor.
inline const std::string first_read =
    "blocking read com.tarlo.PowerControl.Status /com/tarlo/PowerControl/Status "
    "com.tarlo.PowerControl.Status PowerReceived as d";
inline const std::string change_match =
    "match type='signal',interface='org.freedesktop.DBus.Properties',"
    "path='/com/tarlo/PowerControl/Status',member='PropertiesChanged'";
inline const std::string query =
    "call com.tarlo.PowerControl.Status /com/tarlo/PowerControl/Status "
    "org.freedesktop.DBus.Properties "
    "Get(s \"com.tarlo.PowerControl.Status\", s \"PowerReceived\")";

// The publication at the end of every run.
inline const std::string enough = "publish power_ok_out = true";
inline const std::string too_little = "publish power_ok_out = false";

inline const std::string fired = "fire event_port";
/// How every callback ends: answering a signal or a reply is refused.
inline const std::string answer = "answer null() = -22";
inline Journal answered(Journal effects = {}) {
    effects.insert(effects.end(), {answer, "returns -22"});
    return effects;
}
/// The effects of a message that is taken.
inline const Journal taken = answered({fired});

/// A signal of the status object.
template <class... Values>
support::MakeMessage signal_of(const char* types, Values... values) {
    return [=](support::Messages& messages) {
        return messages.signal("/com/tarlo/PowerControl/Status", "org.freedesktop.DBus.Properties",
                               "PropertiesChanged", types, values...);
    };
}
/// A PropertiesChanged signal with `count` entries, each a name and a variant.
template <class... Entries>
support::MakeMessage change_of(unsigned count, Entries... entries) {
    return signal_of("sa{sv}as", "com.tarlo.PowerControl.Status", count, entries..., 0U);
}

class PowerMonitorTest : public support::BlockFixture<PowerMonitor> {
  protected:
    /// Builds a monitor while this much power is received.
    void make(double received = 0.0, double requested = 5.0) {
        recorders.tools.reply_next(messages.reply("d", received));
        build("monitor", support::observed({{"requested_power", requested}}));
        EXPECT_EQ(take(),
                  (Journal{"output power_ok_out", "event event_port", "float requested_power",
                           first_read, fired, "release the reply to PowerReceived"}));
    }

    // Each takes a monitor with too little power one step further.

    /// The match is sending 1.
    void match() {
        make();
        EXPECT_EQ(run(), (Journal{change_match, too_little}));
        EXPECT_EQ(install(bus.last(), messages.reply("")), taken);
    }
    /// The query is sending 2.
    void ask() {
        match();
        EXPECT_EQ(run(), (Journal{query, too_little}));
    }
    /// ... and up to the state in which signals keep the value current.
    void watch(double power) {
        ask();
        EXPECT_EQ(deliver(bus.last(), messages.reply("v", "d", power)), taken);
    }

    /// A change of the power to this much.
    Journal change(double power, const sd_bus_error& error = SD_BUS_ERROR_NULL) {
        return deliver(bus.sending(1), change_of(1, "PowerReceived", "d", power)(messages), error);
    }

    [[nodiscard]] double received() { return LayoutProbe::received_power(block()); }
    [[nodiscard]] int failures() { return LayoutProbe::retry_count(block()); }
};

}  // namespace monitor_test
