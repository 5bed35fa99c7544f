#pragma once

#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/block_driver.hpp"
#include "tests/support/layout_probe.hpp"

namespace monitor_test {

using blocks::LayoutProbe;
using blocks::PowerMonitor;
using Journal = std::vector<std::string>;
using Lines = std::vector<std::string>;

inline constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();
inline constexpr double infinity = std::numeric_limits<double>::infinity();

// What a monitor sends.
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

/// How every callback of a monitor ends: answering a signal or a reply is refused.
inline const std::string answer = "answer null() = -22";
inline constexpr int answered = -22;

class PowerMonitorTest : public support::BlockTest {
  protected:
    /// Builds a monitor that needs 5.0, while this much power is received.
    void make(double received = 0.0) { make_with({{"requested_power", 5.0}}, received); }
    void make_with(const Fenwa::BlockConfiguration& config, double received) {
        recorders.tools.reply_next(messages.reply("d", received));
        monitor.emplace(recorders.tools, "monitor", config);
        EXPECT_EQ(bus.take_journal(), (Journal{first_read}));
        EXPECT_TRUE(monitor->woken());
    }

    /// A run, with what the block sends in it.
    Journal run() {
        EXPECT_TRUE((*monitor)->run());
        return bus.take_journal();
    }

    /// Calls a callback that must return normally, for the message that it was handed.
    template <class... Error>
    void deliver(const support::Sending& sending, sd_bus_message* message, Error... error) {
        EXPECT_EQ(sending.deliver(message, error...), answered);
        expect_answer(message);
    }
    template <class... Error>
    void install(const support::Sending& sending, sd_bus_message* message, Error... error) {
        EXPECT_EQ(sending.install(message, error...), answered);
        expect_answer(message);
    }
    void expect_answer(sd_bus_message* message) {
        EXPECT_EQ(bus.answered(), message);
        EXPECT_EQ(bus.take_journal(), (Journal{answer}));
    }

    // Each takes the block one step further.

    /// The match is sending 1.
    void match() {
        EXPECT_EQ(run(), (Journal{change_match}));
        install(bus.last(), messages.reply(""));
        EXPECT_TRUE(monitor->woken());
    }
    /// The query is sending 2.
    void ask() {
        match();
        EXPECT_EQ(run(), (Journal{query}));
    }
    /// ... and up to the state in which signals keep the value current.
    void watch(double power) {
        ask();
        deliver(bus.last(), messages.reply("v", "d", power));
        EXPECT_TRUE(monitor->woken());
        (void)run();
        (void)published();
    }

    /// A signal of the status object.
    template <class... Values>
    support::Message signal(const char* types, Values... values) {
        return messages.signal("/com/tarlo/PowerControl/Status", "org.freedesktop.DBus.Properties",
                               "PropertiesChanged", types, values...);
    }
    /// A PropertiesChanged signal with `count` entries, each a name and a variant.
    template <class... Entries>
    support::Message change(unsigned count, Entries... entries) {
        return signal("sa{sv}as", "com.tarlo.PowerControl.Status", count, entries..., 0U);
    }

    Fenwa::OutPort<bool>& port() {
        return *dynamic_cast<Fenwa::OutPort<bool>*>((*monitor)->get_outport("power_ok_out"));
    }
    /// The value that the last run published, if it did.
    std::optional<bool> published() {
        const bool any = !journal.take(support::effect::publication).empty();
        return any ? std::optional(port().value) : std::nullopt;
    }
    /// What a run publishes.
    std::optional<bool> outcome() {
        EXPECT_TRUE((*monitor)->run());
        return published();
    }

    [[nodiscard]] double received() { return LayoutProbe::received_power(**monitor); }
    [[nodiscard]] int failures() { return LayoutProbe::retry_count(**monitor); }
    [[nodiscard]] bool call_pending() {
        return *LayoutProbe::call_slot_field(**monitor) != nullptr;
    }
    [[nodiscard]] bool match_held() { return *LayoutProbe::match_slot_field(**monitor) != nullptr; }

    std::optional<support::BlockDriver<PowerMonitor>> monitor;
};

}  // namespace monitor_test
