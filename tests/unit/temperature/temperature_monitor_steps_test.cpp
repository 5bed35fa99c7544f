#include <cerrno>
#include <stdexcept>

#include "tests/unit/temperature/temperature_monitor_fixture.hpp"

namespace {

using namespace monitor_test;

TEST_F(TemperatureMonitorTest, MatchesOwnerChangesFirst) {
    make();
    EXPECT_EQ(run(), (Journal{owner_match}));
    EXPECT_EQ(bus.last().bus, messages.bus());
    EXPECT_EQ(bus.last().slot_field, LayoutProbe::owner_match_slot_field(**monitor));
    EXPECT_EQ(bus.last().userdata, &**monitor);
    EXPECT_NE(bus.last().callback, nullptr);
    EXPECT_NE(bus.last().install_callback, nullptr);
    EXPECT_NE(bus.last().callback, bus.last().install_callback);
    EXPECT_EQ(run(), Journal{}) << "the answer is still out";
    EXPECT_FALSE(monitor->woken());
}

TEST_F(TemperatureMonitorTest, MatchesTheControllersSignalOnceOwnerChangesAreMatched) {
    make();
    install_owner_match();
    EXPECT_EQ(run(), (Journal{signal_match}));
    EXPECT_EQ(bus.last().bus, messages.bus());
    EXPECT_EQ(bus.last().slot_field, LayoutProbe::signal_match_slot_field(**monitor));
    EXPECT_EQ(bus.last().userdata, &**monitor);
    EXPECT_NE(bus.last().callback, nullptr);
    EXPECT_NE(bus.last().install_callback, nullptr);
    EXPECT_NE(bus.last().callback, bus.last().install_callback);
    EXPECT_EQ(run(), Journal{}) << "the answer is still out";
    EXPECT_FALSE(monitor->woken());
}

TEST_F(TemperatureMonitorTest, RegistersItsLimitsOneAtATimeInTheirOrder) {
    make();
    install_matches();
    for (std::size_t limit = 0; limit < 4; ++limit) {
        EXPECT_EQ(run(), (Journal{default_registrations.at(limit)}));
        EXPECT_EQ(bus.last().bus, messages.bus());
        EXPECT_EQ(bus.last().slot_field, LayoutProbe::call_slot_field(**monitor));
        EXPECT_EQ(bus.last().userdata, &**monitor);
        EXPECT_EQ(LayoutProbe::registering_index(**monitor), limit);
        EXPECT_EQ(run(), Journal{}) << "the answer is still out";
        answer_registration(usual_ids.at(limit));
        EXPECT_FALSE(call_pending());
    }
    EXPECT_EQ(run(), Journal{});
    EXPECT_FALSE(monitor->woken());
    EXPECT_EQ(published(), std::nullopt);
}

TEST_F(TemperatureMonitorTest, HasACallbackForEachPurpose) {
    settle();
    EXPECT_NE(bus.sending(1).callback, bus.sending(2).callback);
    EXPECT_NE(bus.sending(1).install_callback, bus.sending(2).install_callback);
    EXPECT_NE(bus.sending(2).callback, bus.sending(3).callback);
    for (std::size_t number = 4; number <= 6; ++number)
        EXPECT_EQ(bus.sending(number).callback, bus.sending(3).callback);
}

TEST_F(TemperatureMonitorTest, ToleratesRunsWithNothingToDo) {
    settle();
    for (int again = 0; again < 5; ++again)
        EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), std::nullopt);
}

TEST_F(TemperatureMonitorTest, TakesAResultOfZeroFromSdBusForSuccess) {
    make();
    bus.answer_next({0, 0, 0, 0, 0, 0});
    install_matches();
    register_limits();
}

// A step that could not be sent is said at its level and taken again on the next run.

TEST_F(TemperatureMonitorTest, TriesTheOwnerMatchAgainWhenItCouldNotBeSent) {
    make();
    bus.answer_next({-EPERM, -EINVAL});
    EXPECT_EQ(run(), (Journal{owner_match}));
    EXPECT_FALSE(owner_match_held());
    EXPECT_FALSE(monitor->woken()) << "the next run comes for another reason";
    EXPECT_EQ(run(), (Journal{owner_match}));
    EXPECT_EQ(log.take(), (Lines{"1 Failed to add match for NameOwnerChanged: "
                                 "Operation not permitted",
                                 "1 Failed to add match for NameOwnerChanged: Invalid argument"}));
    install_owner_match();
}

TEST_F(TemperatureMonitorTest, TriesTheSignalMatchAgainWhenItCouldNotBeSent) {
    make();
    install_owner_match();
    bus.answer_next({-EPERM, -EINVAL});
    EXPECT_EQ(run(), (Journal{signal_match}));
    EXPECT_FALSE(signal_match_held());
    EXPECT_FALSE(monitor->woken());
    EXPECT_EQ(run(), (Journal{signal_match}));
    EXPECT_EQ(log.take(), (Lines{"2 Failed to add DBus signal callback: "
                                 "Operation not permitted",
                                 "2 Failed to add DBus signal callback: Invalid argument"}));
    install_signal_match();
}

TEST_F(TemperatureMonitorTest, TriesARegistrationAgainWhenItCouldNotBeSent) {
    make();
    install_matches();
    for (std::size_t limit = 0; limit < 4; ++limit) {
        bus.answer_next({-EPERM});
        EXPECT_EQ(run(), (Journal{default_registrations.at(limit)}));
        EXPECT_EQ(log.take(),
                  (Lines{"1 Failed to RegisterForTemperatureSignal: Operation not permitted"}));
        EXPECT_FALSE(call_pending());
        EXPECT_FALSE(monitor->woken());
        EXPECT_EQ(run(), (Journal{default_registrations.at(limit)}));
        answer_registration(usual_ids.at(limit));
    }
}

TEST_F(TemperatureMonitorTest, GivesUpARegistrationUnderWayForAnother) {
    make();
    LayoutProbe::register_limit(**monitor, 1);
    LayoutProbe::register_limit(**monitor, 2);
    EXPECT_EQ(bus.take_journal(),
              (Journal{default_registrations[1], "release #1 RegisterForTemperatureSignal",
                       default_registrations[2]}));
    EXPECT_EQ(LayoutProbe::registering_index(**monitor), 2U);
    bus.answer_next({-ENOTCONN});
    LayoutProbe::register_limit(**monitor, 3);
    EXPECT_EQ(bus.take_journal(),
              (Journal{"release #2 RegisterForTemperatureSignal", default_registrations[3]}));
    EXPECT_FALSE(call_pending());
    EXPECT_EQ(LayoutProbe::registering_index(**monitor), 3U);
    EXPECT_EQ(log.take().size(), 1U);
}

TEST_F(TemperatureMonitorTest, KnowsNoFifthLimit) {
    make();
    try {
        LayoutProbe::register_limit(**monitor, 4);
        FAIL() << "registered a fifth limit";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "array::at: __n (which is 4) >= _Nm (which is 4)");
    }
}

}  // namespace
