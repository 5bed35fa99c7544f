#pragma once

#include <gtest/gtest.h>

#include <array>
#include <optional>

#include "tests/support/block_driver.hpp"
#include "tests/support/layout_probe.hpp"
#include "tests/unit/temperature/controller_texts.hpp"

namespace monitor_test {

using namespace temperature_test;
using blocks::LayoutProbe;
using blocks::TemperatureMonitor;

// What a monitor of sensor "main", id 3, sends, in this order. The numbers of its sendings are 1
// and 2 for the matches, and from 3 on for the registrations.
inline const std::string id_lookup =
    "blocking " + controller_call("GetTemperatureIdFromName(s \"main\")");
inline const std::string first_reading =
    "blocking " + controller_call("GetTemperature(i 3, s \"main\")");
inline const std::string owner_match =
    "match type='signal',interface='org.freedesktop.DBus',member='NameOwnerChanged'";
inline const std::string signal_match = controller_match("TemperatureSignal");

/// The registration of a limit with sensor 3: its value and its flag.
inline std::string registration(const std::string& limit, bool flag) {
    return controller_call("RegisterForTemperatureSignal(i 3, d " + limit + ", b " +
                           (flag ? "true" : "false") + ")");
}

/// The registrations of a monitor's limits, where they are the default ones.
inline const std::array<std::string, 4> default_registrations{
    registration("-998", true), registration("998", false), registration("-1000", false),
    registration("1000", true)};

/// What the controller calls the limits: low_on, high_on, low_off, high_off.
using SignalIds = std::array<std::int32_t, 4>;
inline constexpr SignalIds usual_ids{10, 11, 12, 13};
inline constexpr std::int32_t low_on = 10;
inline constexpr std::int32_t high_on = 11;
inline constexpr std::int32_t low_off = 12;
inline constexpr std::int32_t high_off = 13;

inline const std::string set_true = "4 Setting temperature_ok_out = true";
inline const std::string set_false = "4 Setting temperature_ok_out = false";

class TemperatureMonitorTest : public support::BlockTest {
  protected:
    /// Builds a monitor whose first reading is this one: inside the default limits.
    void make(double reading = 20.0, const Fenwa::BlockConfiguration& more = {}) {
        recorders.tools.reply_next(messages.reply("i", 3));
        recorders.tools.reply_next(messages.reply("d", reading));
        build(more);
        EXPECT_EQ(bus.take_journal(), (Journal{id_lookup, first_reading}));
        EXPECT_TRUE(published());
    }

    /// Builds a monitor of sensor "main"; what it asks for is the test's to foresee and to look at.
    void build(const Fenwa::BlockConfiguration& more = {}) {
        const Fenwa::BlockConfiguration least{{"sensor_name", {"main"}}};
        monitor.emplace(recorders.tools, "monitor", least + more);
        EXPECT_TRUE(monitor->woken());
    }

    /// A run of the monitor, with what it sends in it.
    Journal run() {
        EXPECT_TRUE((*monitor)->run());
        return bus.take_journal();
    }

    // Each takes the block one step further.

    void install_owner_match() {
        EXPECT_EQ(run(), (Journal{owner_match}));
        EXPECT_EQ(bus.last().install(messages.reply("")), 0);
        EXPECT_TRUE(monitor->woken());
    }
    void install_signal_match() {
        EXPECT_EQ(run(), (Journal{signal_match}));
        EXPECT_EQ(bus.last().install(messages.reply("")), 0);
        EXPECT_TRUE(monitor->woken());
    }
    void install_matches() {
        install_owner_match();
        install_signal_match();
    }
    /// Answers the registration that is under way.
    void answer_registration(std::int32_t id, bool already_crossed = false) {
        EXPECT_EQ(bus.last().deliver(messages.reply("ib", id, static_cast<int>(already_crossed))),
                  0);
        EXPECT_TRUE(monitor->woken());
        EXPECT_EQ(bus.take_journal(), (Journal{"release #" + std::to_string(bus.count()) +
                                               " RegisterForTemperatureSignal"}));
    }
    void register_limits(const SignalIds& ids = usual_ids) {
        for (std::size_t limit = 0; limit < ids.size(); ++limit) {
            EXPECT_EQ(run(), (Journal{default_registrations.at(limit)}));
            answer_registration(ids.at(limit));
        }
    }
    /// Brings a fresh monitor to where only signals move it.
    void settle(double reading = 20.0, const SignalIds& ids = usual_ids) {
        make(reading);
        install_matches();
        register_limits(ids);
        EXPECT_EQ(run(), Journal{});
    }

    support::Message signal_message(std::int32_t id) {
        return messages.signal(controller_path, controller_name, "TemperatureSignal", "i", id);
    }
    /// Tells the monitor that a limit has been crossed.
    void cross(std::int32_t id) {
        EXPECT_EQ(bus.sending(2).deliver(signal_message(id)), 0);
        EXPECT_TRUE(monitor->woken());
    }
    /// Tells the monitor of a new owner of a name.
    void change_owner(const char* name, const char* old_owner, const char* new_owner) {
        EXPECT_EQ(bus.sending(1).deliver(messages.owner_change(name, old_owner, new_owner)), 0);
    }
    void lose_controller() {
        change_owner(controller_name, ":1.5", "");
        EXPECT_TRUE(monitor->woken());
    }

    Fenwa::OutPort<bool>& port() {
        return *dynamic_cast<Fenwa::OutPort<bool>*>((*monitor)->get_outport("temperature_ok_out"));
    }
    /// The verdict that has been published since the last time, if one has.
    std::optional<bool> published() {
        const bool any = !journal.take(support::effect::publication).empty();
        return any ? std::optional(port().value) : std::nullopt;
    }
    /// The verdict as the settings have it.
    bool verdict() { return (*monitor)->setup({}).getBool("temperature_ok"); }

    [[nodiscard]] bool owner_match_held() {
        return *LayoutProbe::owner_match_slot_field(**monitor) != nullptr;
    }
    [[nodiscard]] bool signal_match_held() {
        return *LayoutProbe::signal_match_slot_field(**monitor) != nullptr;
    }
    [[nodiscard]] bool call_pending() {
        return *LayoutProbe::call_slot_field(**monitor) != nullptr;
    }

    std::optional<support::BlockDriver<TemperatureMonitor>> monitor;
};

}  // namespace monitor_test
