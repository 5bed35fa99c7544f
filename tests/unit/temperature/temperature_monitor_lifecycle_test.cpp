#include "tests/unit/temperature/temperature_monitor_fixture.hpp"

namespace {

using namespace monitor_test;

/// A monitor with all its slots: the first registration is under way.
class RegisteringMonitorTest : public TemperatureMonitorTest {
  protected:
    void SetUp() override {
        reach(3);
        EXPECT_EQ(run(), (Journal{default_registrations[0]}));
        EXPECT_TRUE(woken());
    }
};

TEST_F(RegisteringMonitorTest, ReleasesTheSignalMatchTheOwnerMatchAndTheCallWhenStopped) {
    EXPECT_EQ(stop(), (Journal{"release #2 TemperatureSignal", "release #1 match",
                               "release #3 RegisterForTemperatureSignal"}));
    EXPECT_EQ(stop(), Journal{});
    EXPECT_EQ(destroy(), Journal{});
}

TEST_F(RegisteringMonitorTest, ReleasesTheCallTheOwnerMatchAndTheSignalMatchWhenDestroyed) {
    cross(low_off);
    EXPECT_EQ(destroy(), (Journal{"release #3 RegisterForTemperatureSignal", "release #1 match",
                                  "release #2 TemperatureSignal"}));
}

TEST_F(TemperatureMonitorTest, ReleasesWhatThereIsWhenStoppedEarly) {
    make();
    EXPECT_EQ(stop(), Journal{});
    make();
    EXPECT_EQ(run(), (Journal{owner_match}));
    EXPECT_EQ(stop(), (Journal{"release #1 match"}));
    make();
    EXPECT_EQ(destroy(), Journal{});
}

TEST_F(RegisteringMonitorTest, IsNotWokenByAnythingOnceItIsStopped) {
    (void)stop();
    EXPECT_EQ(install(bus.sending(1), messages.reply("")), Journal{});
    EXPECT_EQ(install(bus.sending(2), messages.reply("")), Journal{});
    EXPECT_EQ(install(bus.sending(1), messages.reply(""), denied).size(), 2U) << "but logs";
    EXPECT_EQ(deliver(bus.sending(3), messages.reply("ib", low_on, 1)), Journal{});
    EXPECT_EQ(deliver(bus.sending(2), signal_message(low_off)), Journal{});
    EXPECT_EQ(change_owner(controller_name, ":1.5", ""), Journal{});
    EXPECT_FALSE(woken());
}

TEST_F(RegisteringMonitorTest, RecordsAReplyThatReachesItAfterItsStop) {
    (void)stop();
    EXPECT_EQ(deliver(bus.sending(3), messages.reply("ib", low_on, 0)), Journal{});
    EXPECT_EQ(run(), (Journal{default_registrations[1]})) << "the first limit is registered";
}

TEST_F(TemperatureMonitorTest, RecordsAnInstallationThatIsConfirmedAfterItsStop) {
    make();
    EXPECT_EQ(run(), (Journal{owner_match}));
    (void)stop();
    EXPECT_EQ(install(bus.sending(1), messages.reply("")), Journal{});
    EXPECT_EQ(run(), (Journal{signal_match}));
}

TEST_F(TemperatureMonitorTest, RecordsAndJudgesWhatReachesItAfterItsStop) {
    settle();
    cross(low_off);
    (void)stop();
    EXPECT_EQ(run(), turned_off) << "flags, limits and signals are left as they are";
    EXPECT_EQ(deliver(bus.sending(2), signal_message(low_on)), Journal{});
    EXPECT_EQ(run(), turned_on);
    EXPECT_EQ(change_owner(controller_name, ":1.5", ""), Journal{});
    EXPECT_EQ(run(), (Journal{default_registrations[0]}));
}

TEST_F(TemperatureMonitorTest, DoesNotShareItsStateWithAnother) {
    settle();
    foresee(2000.0);
    const Fenwa::BlockConfiguration config{{"sensor_name", {"lens"}}};
    BlockDriver<TemperatureMonitor> other(recorders.tools, "other", config);
    EXPECT_TRUE(other.woken());
    EXPECT_EQ(bus.take_journal().size(), 2U);
    EXPECT_TRUE(verdict());
    EXPECT_FALSE(other->setup({}).getBool("temperature_ok"));

    EXPECT_EQ(effects_of([&] { (void)other->run(); }), (Journal{owner_match}))
        << "the matches are each monitor's own";
    cross(low_off);
    EXPECT_FALSE(other.woken());
    EXPECT_EQ(run(), turned_off);

    EXPECT_EQ(effects_of([&] { other->stop(); }), (Journal{"release #7 match"}));
    cross(low_on);
    EXPECT_EQ(run(), turned_on);
}

}  // namespace
