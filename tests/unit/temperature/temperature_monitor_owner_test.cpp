#include <cerrno>

#include "tests/unit/temperature/temperature_monitor_fixture.hpp"

namespace {

using namespace monitor_test;

TEST_F(TemperatureMonitorTest, RegistersAllLimitsAgainWhenTheControllerIsLost) {
    settle();
    lose_controller();
    EXPECT_EQ(bus.take_journal(), Journal{}) << "a callback sent something";
    register_limits({20, 21, 22, 23});
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), std::nullopt) << "the verdict survives";
    cross(22);
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), false);
    cross(low_on);
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(log.take(), (Lines{set_false, "4 Got unexpected temperature signal with id = 10\n"}))
        << "10 was an id at the old instance";
}

TEST_F(TemperatureMonitorTest, RegistersAgainAfterEachLoss) {
    settle();
    for (int again = 0; again < 3; ++again) {
        lose_controller();
        register_limits();
        EXPECT_EQ(run(), Journal{});
    }
}

TEST_F(TemperatureMonitorTest, KeepsTheSignalsOfBeforeALossUntilItIsRegisteredAgain) {
    settle();
    cross(low_off);
    lose_controller();
    EXPECT_EQ(run(), (Journal{default_registrations[0]}));
    EXPECT_EQ(published(), std::nullopt);
    answer_registration(low_on);
    for (std::size_t limit = 1; limit < 4; ++limit) {
        EXPECT_EQ(run(), (Journal{default_registrations.at(limit)}));
        answer_registration(usual_ids.at(limit));
    }
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), false);
    EXPECT_EQ(log.take(), (Lines{set_false}));
}

TEST_F(TemperatureMonitorTest, IgnoresAControllerThatAppearsOrIsPassedOn) {
    settle();
    change_owner(controller_name, "", ":1.6");
    change_owner(controller_name, ":1.5", ":1.6");
    EXPECT_FALSE(monitor->woken());
    EXPECT_EQ(run(), Journal{});
}

TEST_F(TemperatureMonitorTest, IgnoresTheOwnersOfOtherNames) {
    settle();
    for (const char* name : {"com.tarlo.TemperatureController2", "com.tarlo.Temperature",
                             "com.tarlo.temperaturecontroller", ":1.5", ""})
        change_owner(name, ":1.5", "");
    EXPECT_FALSE(monitor->woken());
    EXPECT_EQ(run(), Journal{});
}

TEST_F(TemperatureMonitorTest, WarnsOfAnUnreadableOwnerChange) {
    settle();
    const auto change = messages.signal("/org/freedesktop/DBus", "org.freedesktop.DBus",
                                        "NameOwnerChanged", "ss", controller_name, "");
    EXPECT_EQ(bus.sending(1).deliver(change), -ENXIO);
    EXPECT_EQ(log.take(),
              (Lines{"2 NameOwnerChanged failed to parse message: No such device or address"}));
    EXPECT_FALSE(monitor->woken());
    EXPECT_EQ(run(), Journal{});
}

TEST_F(TemperatureMonitorTest, LogsASetErrorArgumentOfAnOwnerChangeAndTakesNothingFromIt) {
    settle();
    const auto loss = messages.owner_change(controller_name, ":1.5", "");
    EXPECT_EQ(bus.sending(1).deliver(loss, denied), -EACCES);
    EXPECT_EQ(bus.sending(1).deliver(loss, silent), -ETIMEDOUT);
    EXPECT_EQ(log.take(), (Lines{"2 Error while receiving DBus signal: not you",
                                 "2 Error while receiving DBus signal: "}));
    EXPECT_FALSE(monitor->woken());
    EXPECT_EQ(run(), Journal{});
}

TEST_F(TemperatureMonitorTest, ToleratesALossBeforeItsFirstRegistration) {
    make();
    install_owner_match();
    lose_controller();
    install_signal_match();
    lose_controller();
    register_limits();
    EXPECT_EQ(run(), Journal{});
}

TEST_F(TemperatureMonitorTest, RegistersTheMissingLimitsWhenAReplyComesInSpiteOfALoss) {
    make();
    install_matches();
    for (std::size_t limit = 0; limit < 2; ++limit) {
        EXPECT_EQ(run(), (Journal{default_registrations.at(limit)}));
        answer_registration(usual_ids.at(limit));
    }
    EXPECT_EQ(run(), (Journal{default_registrations[2]}));
    lose_controller();
    EXPECT_EQ(run(), Journal{}) << "the registration is still unanswered";
    EXPECT_TRUE(call_pending());
    answer_registration(low_off);
    for (const std::size_t limit : {0, 1, 3}) {
        EXPECT_EQ(run(), (Journal{default_registrations.at(limit)}));
        answer_registration(usual_ids.at(limit));
    }
    EXPECT_EQ(run(), Journal{});
}

TEST_F(TemperatureMonitorTest, StallsWhenTheControllerGoesWithARegistrationUnanswered) {
    make();
    install_matches();
    EXPECT_EQ(run(), (Journal{default_registrations[0]}));
    lose_controller();
    EXPECT_EQ(bus.last().deliver(messages.error(
                  "org.freedesktop.DBus.Error.NoReply",
                  "Message recipient disconnected from message bus without replying")),
              -ENXIO);
    EXPECT_EQ(log.take(),
              (Lines{"2 Failed to read temperature signal result: No such device or address"}));
    EXPECT_FALSE(monitor->woken());
    change_owner(controller_name, "", ":1.6");
    EXPECT_EQ(run(), Journal{});
    EXPECT_TRUE(call_pending());
}

TEST_F(TemperatureMonitorTest, AsksNeitherForTheOwnerNorForTheSensorAgain) {
    settle();
    lose_controller();
    change_owner(controller_name, "", ":1.6");
    const std::size_t before = bus.count();
    register_limits();
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(bus.count(), before + 4);
}

TEST_F(TemperatureMonitorTest, ReadsAnOwnerChangeUnlessTheResultIsNegative) {
    settle();
    bus.change_results(support::MessageFunction::read, {-EPERM, 0});
    EXPECT_EQ(bus.sending(1).deliver(messages.owner_change(controller_name, ":1.5", "")), -EPERM);
    EXPECT_EQ(log.take(),
              (Lines{"2 NameOwnerChanged failed to parse message: Operation not permitted"}));
    EXPECT_FALSE(monitor->woken());
    EXPECT_EQ(run(), Journal{});
    lose_controller();
    EXPECT_EQ(run(), (Journal{default_registrations[0]}));
}

}  // namespace
