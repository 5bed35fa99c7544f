#include <cerrno>

#include "tests/unit/power/power_consumer_fixture.hpp"

namespace {

using namespace consumer_test;

TEST_F(PowerConsumerTest, RegistersAndAsksAgainWhenTheControllerIsLost) {
    make();
    ask();
    lose_controller();
    EXPECT_FALSE(LayoutProbe::registered(**consumer));
    EXPECT_FALSE(LayoutProbe::power_requested(**consumer));
    EXPECT_EQ(run_woken(), (Journal{registration})) << "at once, and without another match";
    answer();
    EXPECT_EQ(run_woken(), (Journal{request}));
    answer();
    EXPECT_EQ(run_woken(), Journal{});
}

TEST_F(PowerConsumerTest, RegistersAgainAfterALossWithoutAskingAgainWhenTheRequestIsAnsweredLate) {
    make();
    enlist();
    EXPECT_EQ(run_woken(), (Journal{request}));
    lose_controller();
    EXPECT_EQ(run_woken(), Journal{}) << "the call slot is left alone";
    answer();
    EXPECT_EQ(run_woken(), (Journal{registration}));
    answer();
    EXPECT_EQ(run_woken(), Journal{}) << "the late answer counts";
}

TEST_F(PowerConsumerTest, OnlyLogsANewOwnerOfTheController) {
    make();
    ask();
    const auto changed = [this](const char* old_owner, const char* new_owner) {
        return bus.sending(1).deliver(
            owner_change("sss", "com.tarlo.PowerControl.Consumer", old_owner, new_owner));
    };
    EXPECT_EQ(changed("", ":1.7"), 0);
    EXPECT_EQ(changed(":1.7", ":1.8"), 0);
    EXPECT_EQ(
        log.take(),
        (Lines{"4 Owner of 'com.tarlo.PowerControl.Consumer' changed from '' to ':1.7'",
               "4 Owner of 'com.tarlo.PowerControl.Consumer' changed from ':1.7' to ':1.8'"}));
    EXPECT_FALSE(consumer->woken());
    EXPECT_EQ(run(), Journal{});
}

TEST_F(PowerConsumerTest, LeavesANullOwnerOutOfTheLine) {
    make();
    ask();
    const auto change = owner_change("sss", "com.tarlo.PowerControl.Consumer", ":1.5", "");
    const std::string begin = "4 Owner of 'com.tarlo.PowerControl.Consumer' changed from '";
    bus.null_string(2);
    EXPECT_EQ(bus.sending(1).deliver(change), 0);
    EXPECT_EQ(log.take(), (Lines{begin + ":1.5' to ''"}));
    EXPECT_FALSE(consumer->woken()) << "a null owner is not the empty one";
    bus.null_string(1);
    EXPECT_EQ(bus.sending(1).deliver(change), 0);
    EXPECT_EQ(log.take(), (Lines{begin + "' to ''"}));
    EXPECT_TRUE(consumer->woken());
}

TEST_F(PowerConsumerTest, IgnoresTheOwnerOfANullName) {
    make();
    ask();
    bus.null_string(0);
    EXPECT_EQ(
        bus.sending(1).deliver(owner_change("sss", "com.tarlo.PowerControl.Consumer", ":1.5", "")),
        0);
    EXPECT_FALSE(consumer->woken());
}

TEST_F(PowerConsumerTest, IgnoresTheOwnersOfOtherNames) {
    make();
    ask();
    for (const char* name :
         {"com.tarlo.PowerControl.Status", "com.tarlo.PowerControl.Consumer2",
          "com.tarlo.PowerControl", "com.tarlo.powercontrol.consumer", "", ":1.5"}) {
        EXPECT_EQ(bus.sending(1).deliver(owner_change("sss", name, ":1.5", "")), 0);
    }
    EXPECT_FALSE(consumer->woken());
    EXPECT_EQ(run(), Journal{});
}

TEST_F(PowerConsumerTest, WarnsOfAnUnreadableOwnerChange) {
    make();
    ask();
    EXPECT_EQ(bus.sending(1).deliver(owner_change("")), -ENXIO);
    EXPECT_EQ(bus.sending(1).deliver(owner_change("ss", "com.tarlo.PowerControl.Consumer", ":1.5")),
              -ENXIO);
    bus.make_up(support::MessageFunction::read, {-EPERM});
    EXPECT_EQ(
        bus.sending(1).deliver(owner_change("sss", "com.tarlo.PowerControl.Consumer", ":1.5", "")),
        -EPERM);
    EXPECT_EQ(log.take(),
              (Lines{"2 NameOwnerChanged failed to parse message: No such device or address",
                     "2 NameOwnerChanged failed to parse message: No such device or address",
                     "2 NameOwnerChanged failed to parse message: Operation not permitted"}));
    EXPECT_FALSE(consumer->woken());
    EXPECT_EQ(run(), Journal{});
}

TEST_F(PowerConsumerTest, DoesNotLookAtTheErrorArgumentOfAnOwnerChange) {
    make();
    ask();
    const sd_bus_error failed =
        SD_BUS_ERROR_MAKE_CONST("org.freedesktop.DBus.Error.Failed", "no luck");
    EXPECT_EQ(bus.sending(1).deliver(
                  owner_change("sss", "com.tarlo.PowerControl.Consumer", ":1.5", ""), failed),
              0);
    EXPECT_EQ(log.take().size(), 1U);
    EXPECT_EQ(run_woken(), (Journal{registration}));
}

TEST_F(PowerConsumerTest, TakesAResultOfZeroForAnOwnerChangeThatWasRead) {
    make();
    ask();
    bus.change_results(support::MessageFunction::read, {0});
    lose_controller();
    EXPECT_EQ(run(), (Journal{registration}));
}

}  // namespace
