#include <cerrno>
#include <tuple>

#include "fenwa/sdbus_error.hpp"
#include "tests/unit/temperature/temperature_monitor_fixture.hpp"

namespace {

using namespace monitor_test;

/// What a monitor of a sensor that stays unknown asks for.
const std::string reading_without_id =
    "blocking " + controller_call("GetTemperature(i -1, s \"main\")");

TEST_F(TemperatureMonitorTest, TakesTheStepsOfItsConstructionInThisOrder) {
    recorders.tools.reply_next(messages.reply("i", 3));
    recorders.tools.reply_next(messages.reply("d", 20.0));
    monitor.emplace(recorders.tools, "monitor",
                    support::observed({{"sensor_name", {"main"}}, {"other", true}}));
    EXPECT_EQ(take(),
              (Journal{"event event_port", "output temperature_ok_out", "string sensor_name",
                       "float low_on_temp or a default", "float low_off_temp or a default",
                       "float high_on_temp or a default", "float high_off_temp or a default",
                       id_lookup, "release the reply to GetTemperatureIdFromName", first_reading,
                       "publish temperature_ok_out = true", "fire event_port",
                       "release the reply to GetTemperature"}));
}

TEST_F(TemperatureMonitorTest, TakesTheSameStepsWithoutAnyReply) {
    recorders.tools.return_next();
    recorders.tools.throw_next(Fenwa::SDBusError("a.Error", "no", -EIO));
    build();
    Journal steps = take();
    steps.erase(steps.begin(), steps.begin() + 2);
    EXPECT_EQ(steps, (Journal{id_lookup, "2 Failed to parse sensor id: Invalid argument",
                              reading_without_id, "2 Failed to read temperature: a.Error: no",
                              "2 Failed to parse sensor id: Invalid argument",
                              "publish temperature_ok_out = true"}))
        << "its fire has been taken";
}

/// Looks at what a monitor knows at each effect: its matches, the first limit, the signals that
/// wait, whether a call is out, and whether it is stopped.
class TemperatureMonitorOrderTest : public TemperatureMonitorTest {
  protected:
    void watch() {
        (void)take();
        remark([this] {
            const TemperatureMonitor& now = **monitor;
            return std::tuple(
                LayoutProbe::owner_match_added(now), LayoutProbe::signal_match_added(now),
                LayoutProbe::registered(now).front(), LayoutProbe::signal_ids(now).front(),
                LayoutProbe::pending_signals(now).size(), call_pending(),
                LayoutProbe::stopped(now));
        });
    }
};

TEST_F(TemperatureMonitorOrderTest, RecordsWhatItHearsAndIsThenWokenOnce) {
    make();
    EXPECT_EQ(run(), (Journal{owner_match}));
    watch();
    EXPECT_EQ(bus.last().install(messages.reply(""), denied), -EACCES);
    EXPECT_EQ(take(), (Journal{"1 Error when adding match for NameOwnerChanged: not you | "
                               "(false, false, false, 0, 0, false, false)",
                               "fire event_port | (false, false, false, 0, 0, false, false)"}));
    (void)readings();
    EXPECT_EQ(bus.last().install(messages.reply("s", "more")), 0);
    EXPECT_EQ(take(), (Journal{"fire event_port | (true, false, false, 0, 0, false, false)"}));
    EXPECT_TRUE((*monitor)->run());
    (void)take();
    EXPECT_EQ(bus.last().install(messages.reply("s", "more")), 0);
    EXPECT_EQ(take(), (Journal{"fire event_port | (true, true, false, 0, 0, false, false)"}));
    EXPECT_EQ(readings(), Journal{}) << "what confirms a match is not read";
    EXPECT_TRUE((*monitor)->run());
    (void)take();
    EXPECT_EQ(bus.last().deliver(messages.reply("ib", low_on, 1)), 0);
    EXPECT_EQ(take(), (Journal{"release #3 RegisterForTemperatureSignal | "
                               "(true, true, true, 10, 1, true, false)",
                               "fire event_port | (true, true, true, 10, 1, false, false)"}));
    EXPECT_EQ(bus.sending(2).deliver(signal_message(low_off)), 0);
    EXPECT_EQ(take(), (Journal{"fire event_port | (true, true, true, 10, 2, false, false)"}));
    change_owner(controller_name, ":1.5", "");
    EXPECT_EQ(take(), (Journal{"fire event_port | (true, true, false, 10, 2, false, false)"}));
    (*monitor)->stop();
    EXPECT_EQ(take(), (Journal{"release #2 TemperatureSignal | "
                               "(true, true, false, 10, 2, false, true)",
                               "release #1 match | (true, true, false, 10, 2, false, true)"}))
        << "stopped before anything is given up, with its flags and its queue as they were";
}

// The answer may come on another thread before the call returns.
TEST_F(TemperatureMonitorTest, KnowsWhichLimitItRegistersBeforeItCalls) {
    make();
    install_matches();
    EXPECT_EQ(run(), (Journal{default_registrations[0]}));
    answer_registration(low_on);
    (void)take();
    remark([this] { return LayoutProbe::registering_index(**monitor); });
    EXPECT_TRUE((*monitor)->run());
    EXPECT_EQ(take(), (Journal{default_registrations[1] + " | 1"}));
}

TEST_F(TemperatureMonitorTest, JudgesTheSignalsThatWaitedWhenItWasStopped) {
    settle();
    cross(low_off);
    (*monitor)->stop();
    (void)take();
    EXPECT_TRUE((*monitor)->run());
    EXPECT_EQ(take(), (Journal{set_false, "publish temperature_ok_out = false"}));
}

TEST_F(TemperatureMonitorTest, TellsOfItsSignalsAndThenOfItsVerdictBeforeItPublishes) {
    settle();
    cross(99);
    cross(low_off);
    (void)take();
    EXPECT_TRUE((*monitor)->run());
    EXPECT_EQ(take(), (Journal{"4 Got unexpected temperature signal with id = 99\n", set_false,
                               "publish temperature_ok_out = false"}));
}

TEST_F(TemperatureMonitorTest, TakesARegistrationOfWhichNothingIsReadForTheIdMinusOne) {
    make();
    install_matches();
    EXPECT_EQ(run(), (Journal{default_registrations[0]}));
    bus.make_up(support::MessageFunction::read, {0});
    EXPECT_EQ(bus.last().deliver(messages.reply("ib", 7, 1)), 0);
    EXPECT_TRUE(LayoutProbe::registered(**monitor).front());
    EXPECT_EQ(LayoutProbe::signal_ids(**monitor).front(), -1);
    EXPECT_TRUE(LayoutProbe::pending_signals(**monitor).empty()) << "not crossed";
    (void)bus.take_journal();
}

TEST_F(TemperatureMonitorTest, TakesTheConnectionAnewAtEachUse) {
    make();
    for (std::size_t step = 1; step <= 6; ++step) {
        sd_bus* const connection = step % 2 == 0 ? messages.bus() : other_bus();
        recorders.tools.use_bus(connection);
        EXPECT_EQ(run().size(), 1U);
        EXPECT_EQ(bus.sending(step).bus, connection) << step;
        if (step <= 2) {
            EXPECT_EQ(bus.last().install(messages.reply("")), 0);
        } else {
            EXPECT_EQ(bus.last().deliver(messages.reply("ib", 9, 0)), 0);
        }
        (void)bus.take_journal();
    }
}

}  // namespace
