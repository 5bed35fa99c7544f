#include "tests/unit/temperature/temperature_monitor_fixture.hpp"

namespace {

using namespace monitor_test;

TEST_F(TemperatureMonitorTest, RegistersAllLimitsAgainAtEachLossOfTheController) {
    settle();
    lose_controller();
    register_limits();
    EXPECT_EQ(run(), Journal{}) << "the verdict survives, and nothing else is asked for";
    lose_controller();
    EXPECT_EQ(change_owner(controller_name, "", ":1.6"), Journal{});
    register_limits({20, 21, 22, 23});
    EXPECT_EQ(run(), Journal{});
    cross(22);
    EXPECT_EQ(run(), turned_off);
    cross(low_on);
    EXPECT_EQ(run(), (Journal{unexpected("10")})) << "10 was an id at the old instance";
}

TEST_F(TemperatureMonitorTest, KeepsTheSignalsOfBeforeALossUntilItIsRegisteredAgain) {
    settle();
    cross(low_off);
    lose_controller();
    register_limits();
    EXPECT_EQ(run(), turned_off);
}

TEST_F(TemperatureMonitorTest, IgnoresAnyOtherChangeOfAnOwner) {
    settle();
    EXPECT_EQ(change_owner(controller_name, "", ":1.6"), Journal{});
    EXPECT_EQ(change_owner(controller_name, ":1.5", ":1.6"), Journal{});
    for (const char* name : {"com.tarlo.TemperatureController2", "com.tarlo.Temperature",
                             "com.tarlo.temperaturecontroller", ":1.5", ""})
        EXPECT_EQ(change_owner(name, ":1.5", ""), Journal{});
    EXPECT_EQ(run(), Journal{});
}

TEST_F(TemperatureMonitorTest, TakesNothingFromAnOwnerChangeThatIsOfNoUse) {
    settle();
    expect_only_lines(
        bus.sending(1), messages.owner_change(controller_name, ":1.5", ""),
        "2 Error while receiving DBus signal: ", "2 NameOwnerChanged failed to parse message: ");
    EXPECT_EQ(run(), Journal{});
}

TEST_F(TemperatureMonitorTest, TakesAnOwnerChangeUnlessTheResultIsNegative) {
    settle();
    bus.change_results(MessageFunction::read, {0});
    lose_controller();
    EXPECT_EQ(run(), (Journal{default_registrations[0]}));
}

TEST_F(TemperatureMonitorTest, ToleratesALossBeforeItsFirstRegistration) {
    make();
    install_match(owner_match);
    lose_controller();
    install_match(signal_match);
    lose_controller();
    register_limits();
    EXPECT_EQ(run(), Journal{});
}

TEST_F(TemperatureMonitorTest, RegistersTheMissingLimitsWhenAReplyComesInSpiteOfALoss) {
    reach(5);
    EXPECT_EQ(run(), (Journal{default_registrations[2]}));
    lose_controller();
    EXPECT_EQ(run(), Journal{}) << "the registration is still unanswered";
    answer_registration(low_off);
    for (const std::size_t limit : {0, 1, 3})
        register_limit(limit);
    EXPECT_EQ(run(), Journal{});
}

}  // namespace
