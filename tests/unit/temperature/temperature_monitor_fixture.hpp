#pragma once

#include <array>
#include <string>

#include "tests/unit/temperature/controller_texts.hpp"

extern template class support::BlockFixture<blocks::TemperatureMonitor>;

namespace monitor_test {

using namespace temperature_test;
using blocks::TemperatureMonitor;

// A monitor of sensor "main", id 3, sends these in this order. Its sendings 1 and 2 are the
// matches, 3 to 6 the registrations.
inline const std::string id_lookup =
    "blocking " + controller_call("GetTemperatureIdFromName(s \"main\")");
inline const std::string first_reading =
    "blocking " + controller_call("GetTemperature(i 3, s \"main\")");
inline const std::string signal_match = controller_match("TemperatureSignal");

/// The registration of a limit with sensor 3: its value and its flag.
inline std::string registration(const std::string& limit, bool flag) {
    return controller_call("RegisterForTemperatureSignal(i 3, d " + limit + ", b " +
                           (flag ? "true" : "false") + ")");
}

/// The registrations of the default limits.
inline const std::array<std::string, 4> default_registrations{
    registration("-998", true), registration("998", false), registration("-1000", false),
    registration("1000", true)};

/// The controller's ids of the limits: low_on, high_on, low_off, high_off.
using SignalIds = std::array<std::int32_t, 4>;
inline constexpr SignalIds usual_ids{10, 11, 12, 13};
inline constexpr std::int32_t low_on = 10;
inline constexpr std::int32_t high_on = 11;
inline constexpr std::int32_t low_off = 12;
inline constexpr std::int32_t high_off = 13;

// The effects of a run that changes the verdict.
inline const Journal turned_off{"4 Setting temperature_ok_out = false",
                                "publish temperature_ok_out = false"};
inline const Journal turned_on{"4 Setting temperature_ok_out = true",
                               "publish temperature_ok_out = true"};
/// The line for a signal with an unknown id; it ends with a line end of its own.
inline std::string unexpected(const std::string& id) {
    return "4 Got unexpected temperature signal with id = " + id + "\n";
}

class TemperatureMonitorTest : public BlockFixture<TemperatureMonitor> {
  protected:
    /// Answers the two blocking calls of the next constructor.
    void foresee(double reading) {
        recorders.tools.reply_next(messages.reply("i", 3));
        recorders.tools.reply_next(messages.reply("d", reading));
    }
    /// Builds a monitor of sensor "main" and takes its first wake-up.
    /// @returns its calls, lines and publications.
    Journal construct(const Fenwa::BlockConfiguration& more = {}) {
        const Fenwa::BlockConfiguration least{{"sensor_name", {"main"}}};
        build("monitor", least + more);
        EXPECT_TRUE(woken());
        return journal.take(effect::sending | effect::line | effect::publication);
    }
    void make(double reading = 20.0, const Fenwa::BlockConfiguration& more = {}) {
        foresee(reading);
        Journal effects = construct(more);
        EXPECT_EQ(effects.size(), 3U);
        effects.resize(2);
        EXPECT_EQ(effects, (Journal{id_lookup, first_reading}));
    }

    // Each takes the monitor one step further.

    void install_match(const std::string& match) {
        EXPECT_EQ(run(), (Journal{match}));
        EXPECT_EQ(install(bus.last(), messages.reply("")), wake_up);
    }
    void install_matches() {
        install_match(owner_match);
        install_match(signal_match);
    }
    /// Answers the registration that is under way.
    void answer_registration(std::int32_t id, bool already_crossed = false) {
        EXPECT_EQ(deliver(bus.last(), messages.reply("ib", id, static_cast<int>(already_crossed))),
                  (Journal{bus.last().release_text, "fire event_port"}));
        EXPECT_FALSE(call_pending());
    }
    void register_limit(std::size_t limit, const SignalIds& ids = usual_ids,
                        bool already_crossed = false) {
        EXPECT_EQ(run(), (Journal{default_registrations.at(limit)}));
        answer_registration(ids.at(limit), already_crossed);
    }
    void register_limits(const SignalIds& ids = usual_ids) {
        for (std::size_t limit = 0; limit < ids.size(); ++limit)
            register_limit(limit, ids);
    }
    /// Takes all steps before the sending `number`.
    void reach(std::size_t number) {
        make();
        if (number > 1)
            install_match(owner_match);
        if (number > 2)
            install_match(signal_match);
        for (std::size_t limit = 0; limit + 3 < number; ++limit)
            register_limit(limit);
        EXPECT_EQ(bus.count(), number - 1);
    }
    /// Takes all steps of a new monitor.
    void settle(const SignalIds& ids = usual_ids) {
        reach(3);
        register_limits(ids);
        EXPECT_EQ(run(), Journal{});
        EXPECT_TRUE(woken());
    }

    Message signal_message(std::int32_t id) {
        return signal_of("TemperatureSignal", "i", id)(messages);
    }
    /// Signals that a limit has been crossed.
    void cross(std::int32_t id) { EXPECT_EQ(deliver(bus.sending(2), signal_message(id)), wake_up); }
    /// Signals that a name has a new owner.
    Journal change_owner(const char* name, const char* old_owner, const char* new_owner) {
        return deliver(bus.sending(1), messages.owner_change(name, old_owner, new_owner));
    }
    void lose_controller() { EXPECT_EQ(change_owner(controller_name, ":1.5", ""), wake_up); }

    /// The verdict in the settings.
    bool verdict() { return block().setup({}).getBool("temperature_ok"); }
};

}  // namespace monitor_test
