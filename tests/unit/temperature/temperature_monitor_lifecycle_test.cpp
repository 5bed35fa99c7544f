#include "tests/unit/temperature/temperature_monitor_fixture.hpp"

namespace {

using namespace monitor_test;

const Journal nothing;

TEST_F(TemperatureMonitorTest, ReleasesTheSignalMatchTheOwnerMatchAndTheCallWhenStopped) {
    make();
    install_matches();
    EXPECT_EQ(run(), (Journal{default_registrations[0]}));
    (*monitor)->stop();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #2 TemperatureSignal", "release #1 match",
                                           "release #3 RegisterForTemperatureSignal"}));
    EXPECT_FALSE(signal_match_held());
    EXPECT_FALSE(owner_match_held());
    EXPECT_FALSE(call_pending());
    EXPECT_FALSE(monitor->woken());
    (*monitor)->stop();
    monitor.reset();
    EXPECT_EQ(bus.take_journal(), nothing);
}

TEST_F(TemperatureMonitorTest, ReleasesWhatThereIsWhenStoppedEarly) {
    make();
    (*monitor)->stop();
    EXPECT_EQ(bus.take_journal(), nothing);
    make();
    EXPECT_EQ(run(), (Journal{owner_match}));
    (*monitor)->stop();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #1 match"}));
}

TEST_F(TemperatureMonitorTest, ReleasesTheCallTheOwnerMatchAndTheSignalMatchWhenDestroyed) {
    make();
    install_matches();
    EXPECT_EQ(run(), (Journal{default_registrations[0]}));
    cross(low_off);
    monitor.reset();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #3 RegisterForTemperatureSignal",
                                           "release #1 match", "release #2 TemperatureSignal"}));
}

TEST_F(TemperatureMonitorTest, ReleasesNothingWhenDestroyedUnused) {
    make();
    monitor.reset();
    EXPECT_EQ(bus.take_journal(), nothing);
}

TEST_F(TemperatureMonitorTest, IsNotWokenByAnythingOnceItIsStopped) {
    make();
    install_matches();
    EXPECT_EQ(run(), (Journal{default_registrations[0]}));
    (*monitor)->stop();
    (void)bus.take_journal();
    EXPECT_EQ(bus.sending(1).install(messages.reply("")), 0);
    EXPECT_EQ(bus.sending(2).install(messages.reply("")), 0);
    EXPECT_NE(bus.sending(1).install(messages.reply(""), denied), 0);
    EXPECT_EQ(bus.sending(3).deliver(messages.reply("ib", low_on, 1)), 0);
    EXPECT_EQ(bus.sending(2).deliver(signal_message(low_off)), 0);
    change_owner(controller_name, ":1.5", "");
    EXPECT_FALSE(monitor->woken());
    EXPECT_EQ(bus.take_journal(), nothing);
    EXPECT_EQ(log.take().size(), 1U);
}

TEST_F(TemperatureMonitorTest, RecordsWhatReachesItAfterItsStop) {
    settle();
    (*monitor)->stop();
    (void)bus.take_journal();
    EXPECT_EQ(bus.sending(2).deliver(signal_message(low_off)), 0);
    EXPECT_EQ(run(), nothing) << "flags and limits are left as they are";
    EXPECT_EQ(published(), false);
    EXPECT_EQ(log.take(), (Lines{set_false}));
    change_owner(controller_name, ":1.5", "");
    EXPECT_EQ(run(), (Journal{default_registrations[0]}));
}

TEST_F(TemperatureMonitorTest, RecordsAReplyThatReachesItAfterItsStop) {
    make();
    install_matches();
    EXPECT_EQ(run(), (Journal{default_registrations[0]}));
    (*monitor)->stop();
    (void)bus.take_journal();
    EXPECT_EQ(bus.sending(3).deliver(messages.reply("ib", low_on, 0)), 0);
    EXPECT_EQ(run(), (Journal{default_registrations[1]})) << "the first limit is registered";
}

TEST_F(TemperatureMonitorTest, RecordsAnInstallationThatIsConfirmedAfterItsStop) {
    make();
    EXPECT_EQ(run(), (Journal{owner_match}));
    (*monitor)->stop();
    (void)bus.take_journal();
    EXPECT_EQ(bus.sending(1).install(messages.reply("")), 0);
    EXPECT_EQ(run(), (Journal{signal_match}));
}

TEST_F(TemperatureMonitorTest, DoesNotShareItsStateWithAnother) {
    settle();
    recorders.tools.reply_next(messages.reply("i", 4));
    recorders.tools.reply_next(messages.reply("d", 2000.0));
    const Fenwa::BlockConfiguration config{{"sensor_name", {"lens"}}};
    support::BlockDriver<TemperatureMonitor> other(recorders.tools, "other", config);
    EXPECT_TRUE(other.woken());
    EXPECT_EQ(bus.take_journal().size(), 2U);
    EXPECT_TRUE(verdict());
    EXPECT_FALSE(other->setup({}).getBool("temperature_ok"));

    EXPECT_TRUE(other->run());
    EXPECT_EQ(bus.take_journal(), (Journal{owner_match})) << "the matches are each monitor's own";
    cross(low_off);
    EXPECT_FALSE(other.woken());
    EXPECT_EQ(run(), nothing);
    EXPECT_EQ(published(), false);
    EXPECT_EQ(log.take(), (Lines{set_false}));

    other->stop();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #7 match"}));
    cross(low_on);
    EXPECT_EQ(run(), nothing);
    EXPECT_EQ(published(), true);
    EXPECT_EQ(log.take(), (Lines{set_true}));
}

}  // namespace
