#include "tests/unit/temperature/temperature_monitor_fixture.hpp"

namespace {

using namespace monitor_test;

/// The line for an id that stands for none of the limits; it ends with a line end of its own.
std::string unexpected(const std::string& id) {
    return "4 Got unexpected temperature signal with id = " + id + "\n";
}

TEST_F(TemperatureMonitorTest, TurnsOffWhenAnOffLimitIsCrossedAndOnWhenAnOnLimitIs) {
    for (const std::int32_t off : {low_off, high_off}) {
        for (const std::int32_t on : {low_on, high_on}) {
            settle();
            const std::size_t matches = bus.count() - 5;  // this monitor's first sending
            EXPECT_EQ(bus.sending(matches + 1).deliver(signal_message(off)), 0);
            EXPECT_TRUE(monitor->woken());
            EXPECT_EQ(published(), std::nullopt) << "only a run publishes";
            EXPECT_EQ(run(), Journal{});
            EXPECT_EQ(published(), false);
            EXPECT_FALSE(monitor->woken());
            EXPECT_EQ(bus.sending(matches + 1).deliver(signal_message(on)), 0);
            EXPECT_TRUE(monitor->woken());
            EXPECT_EQ(run(), Journal{});
            EXPECT_EQ(published(), true);
            EXPECT_EQ(log.take(), (Lines{set_false, set_true}));
            monitor.reset();
            (void)bus.take_journal();
        }
    }
}

TEST_F(TemperatureMonitorTest, JudgesASignalOnce) {
    settle();
    cross(low_off);
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), false);
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), std::nullopt);
    EXPECT_EQ(log.take(), (Lines{set_false}));
}

TEST_F(TemperatureMonitorTest, PublishesNothingWhenTheVerdictStays) {
    settle();
    cross(low_on);
    cross(high_on);
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), std::nullopt);
}

TEST_F(TemperatureMonitorTest, LetsTheLastOfSeveralSignalsCountInOneLine) {
    settle();
    cross(low_on);
    cross(high_off);
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), false);
    EXPECT_EQ(log.take(), (Lines{set_false}));

    cross(high_on);
    cross(low_off);
    cross(low_on);
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), true);
    EXPECT_EQ(log.take(), (Lines{set_true}));

    cross(low_off);
    cross(low_on);
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), std::nullopt) << "there and back within one run";
}

TEST_F(TemperatureMonitorTest, NotesAnUnknownSignalAndKeepsItsVerdict) {
    settle();
    for (const std::int32_t id : {3, -1, 0, 14})
        cross(id);
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(log.take(),
              (Lines{unexpected("3"), unexpected("-1"), unexpected("0"), unexpected("14")}));
    EXPECT_EQ(published(), std::nullopt);
    EXPECT_TRUE(verdict());
    EXPECT_EQ(run(), Journal{});
}

TEST_F(TemperatureMonitorTest, GoesOnJudgingBehindAnUnknownSignal) {
    settle();
    cross(low_off);
    cross(99);
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), false);
    cross(99);
    cross(high_on);
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), true);
    EXPECT_EQ(log.take(), (Lines{unexpected("99"), set_false, unexpected("99"), set_true}));
}

TEST_F(TemperatureMonitorTest, TakesAnIdOfBothGroupsForOff) {
    const SignalIds shared[] = {{7, 11, 7, 13}, {7, 11, 12, 7}, {10, 7, 7, 13}, {10, 7, 12, 7}};
    for (const SignalIds& ids : shared) {
        make();
        const std::size_t first = bus.count() + 1;
        install_matches();
        register_limits(ids);
        EXPECT_EQ(bus.sending(first + 1).deliver(signal_message(7)), 0);
        EXPECT_EQ(run(), Journal{});
        EXPECT_EQ(published(), false);
        EXPECT_EQ(log.take(), (Lines{set_false}));
        monitor.reset();
        (void)bus.take_journal();
    }
}

TEST_F(TemperatureMonitorTest, TakesIdsOfAnySign) {
    settle(20.0, {0, -1, -2147483647 - 1, 2147483647});
    cross(-2147483647 - 1);
    (void)run();
    EXPECT_EQ(published(), false);
    cross(0);
    (void)run();
    EXPECT_EQ(published(), true);
    cross(2147483647);
    (void)run();
    EXPECT_EQ(published(), false);
    cross(-1);
    (void)run();
    EXPECT_EQ(published(), true);
    EXPECT_EQ(log.take(), (Lines{set_false, set_true, set_false, set_true}));
}

TEST_F(TemperatureMonitorTest, ComparesItsVerdictWithWhatThePortHolds) {
    settle();
    port().value = false;
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), true);
    EXPECT_EQ(log.take(), (Lines{set_true}));
    port().value = false;
    cross(low_off);
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), std::nullopt);
    EXPECT_FALSE(verdict());
}

TEST_F(TemperatureMonitorTest, CountsALimitThatIsCrossedAlreadyAsASignal) {
    make();
    install_matches();
    const bool crossed[] = {false, false, true, false};
    for (std::size_t limit = 0; limit < 4; ++limit) {
        EXPECT_EQ(run(), (Journal{default_registrations.at(limit)}));
        answer_registration(usual_ids.at(limit), crossed[limit]);
        EXPECT_EQ(published(), std::nullopt);
    }
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), false);
    EXPECT_EQ(log.take(), (Lines{set_false}));
}

TEST_F(TemperatureMonitorTest, JudgesLimitsThatAreCrossedAlreadyInTheOrderOfTheirReplies) {
    make(2000.0);
    install_matches();
    for (std::size_t limit = 0; limit < 4; ++limit) {
        EXPECT_EQ(run(), (Journal{default_registrations.at(limit)}));
        answer_registration(usual_ids.at(limit), limit < 2);
    }
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), true);
    EXPECT_EQ(log.take(), (Lines{set_true}));
}

TEST_F(TemperatureMonitorTest, KeepsSignalsThatComeWhileItRegistersForLater) {
    make();
    install_matches();
    EXPECT_EQ(run(), (Journal{default_registrations[0]}));
    cross(low_on);
    cross(99);
    EXPECT_EQ(run(), Journal{});
    answer_registration(low_on);
    EXPECT_EQ(run(), (Journal{default_registrations[1]}));
    cross(high_off);
    answer_registration(high_on, true);
    EXPECT_EQ(run(), (Journal{default_registrations[2]}));
    answer_registration(low_off);
    EXPECT_EQ(run(), (Journal{default_registrations[3]}));
    cross(98);
    EXPECT_EQ(log.take(), Lines{});
    answer_registration(high_off, true);
    EXPECT_EQ(run(), Journal{});
    // ... on, unknown, off, on, unknown, off
    EXPECT_EQ(log.take(), (Lines{unexpected("99"), unexpected("98"), set_false}));
    EXPECT_EQ(published(), false);
}

TEST_F(TemperatureMonitorTest, TakesASignalEvenBeforeItsMatchIsConfirmed) {
    make();
    install_owner_match();
    EXPECT_EQ(run(), (Journal{signal_match}));
    EXPECT_EQ(bus.last().deliver(signal_message(low_off)), 0);
    EXPECT_TRUE(monitor->woken());
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(bus.last().install(messages.reply("")), 0);
    register_limits();
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), false);
    EXPECT_EQ(log.take(), (Lines{set_false}));
}

TEST_F(TemperatureMonitorTest, TakesASignalOfWhichNothingIsReadForTheIdMinusOne) {
    settle();
    bus.make_up(support::MessageFunction::read, {0});
    cross(low_off);
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(log.take(), (Lines{"4 Got unexpected temperature signal with id = -1\n"}));
}

}  // namespace
