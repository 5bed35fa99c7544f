#include <cerrno>

#include "tests/unit/power/power_monitor_fixture.hpp"

namespace {

using namespace monitor_test;
using support::denied;

TEST_F(PowerMonitorTest, InstallsTheMatchForChangesInItsFirstRun) {
    make();
    EXPECT_EQ(run(), (Journal{change_match}));
    EXPECT_EQ(bus.last().bus, messages.bus());
    EXPECT_EQ(bus.last().slot_field, LayoutProbe::match_slot_field(**monitor));
    EXPECT_EQ(bus.last().userdata, &**monitor);
    EXPECT_NE(bus.last().callback, nullptr);
    EXPECT_NE(bus.last().install_callback, nullptr);
    EXPECT_NE(bus.last().callback, bus.last().install_callback);
    EXPECT_FALSE(monitor->woken());
}

TEST_F(PowerMonitorTest, TakesTheMatchBackAndAsksAnewWhenItIsRunBeforeItIsInstalled) {
    make();
    EXPECT_EQ(run(), (Journal{change_match}));
    EXPECT_EQ(run(), (Journal{"release #1 match", change_match}));
    EXPECT_EQ(run(), (Journal{"release #2 match", change_match}));
    EXPECT_TRUE(match_held());
}

TEST_F(PowerMonitorTest, AsksForTheValueOnceTheMatchIsInstalled) {
    make();
    ask();
    EXPECT_EQ(bus.last().bus, messages.bus());
    EXPECT_EQ(bus.last().slot_field, LayoutProbe::call_slot_field(**monitor));
    EXPECT_EQ(bus.last().userdata, &**monitor);
    EXPECT_NE(bus.last().callback, bus.sending(1).callback);
    EXPECT_TRUE(match_held());
}

TEST_F(PowerMonitorTest, CancelsItsQuestionAndAsksAnewWhenItIsRunBeforeTheAnswer) {
    make();
    ask();
    EXPECT_EQ(run(), (Journal{"release #2 Get", query}));
    EXPECT_EQ(run(), (Journal{"release #3 Get", query}));
    EXPECT_TRUE(call_pending());
}

TEST_F(PowerMonitorTest, SendsNothingMoreOnceItHasTheValue) {
    make();
    watch(7.0);
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(run(), Journal{});
    EXPECT_TRUE(match_held());
    EXPECT_TRUE(call_pending()) << "the answered call is given up with the block";
    EXPECT_EQ(bus.count(), 2U);
}

TEST_F(PowerMonitorTest, PublishesItsOutcomeInEveryRun) {
    make(5.0);
    EXPECT_EQ(outcome(), true);
    EXPECT_EQ(outcome(), true) << "while the match is being installed";
    EXPECT_EQ(bus.take_journal().back(), change_match);
    install(bus.last(), messages.reply(""));
    EXPECT_EQ(published(), std::nullopt) << "a callback published";
    EXPECT_EQ(outcome(), true) << "while the value is asked for";
    EXPECT_EQ(bus.take_journal(), (Journal{query}));
    deliver(bus.last(), messages.reply("v", "d", 4.0));
    EXPECT_EQ(published(), std::nullopt);
    EXPECT_EQ(outcome(), false);
    EXPECT_EQ(outcome(), false) << "the same outcome again";
}

TEST_F(PowerMonitorTest, SaysThatTheMatchCouldNotBeSentAndTriesAgainOnTheNextRun) {
    make(5.0);
    bus.answer_next({-EPERM});
    EXPECT_EQ(run(), (Journal{change_match}));
    EXPECT_EQ(log.take(), (Lines{"1 Failed to send properties changed signal handler request: "
                                 "Operation not permitted"}));
    EXPECT_FALSE(match_held());
    EXPECT_FALSE(monitor->woken()) << "the next run comes for another reason";
    EXPECT_EQ(published(), true);
    EXPECT_EQ(failures(), 0);
    match();
}

TEST_F(PowerMonitorTest, SaysThatTheQuestionCouldNotBeSentAndTriesAgainOnTheNextRun) {
    make(5.0);
    match();
    bus.answer_next({-EPERM});
    EXPECT_EQ(run(), (Journal{query}));
    EXPECT_EQ(log.take(), (Lines{"1 Failed to query PowerReceived: Operation not permitted"}));
    EXPECT_FALSE(call_pending());
    EXPECT_FALSE(monitor->woken());
    EXPECT_EQ(published(), true);
    EXPECT_EQ(failures(), 0);
    EXPECT_EQ(run(), (Journal{query}));
}

TEST_F(PowerMonitorTest, LosesTheEarlierMatchAlsoWhenTheNextCannotBeSent) {
    make();
    EXPECT_EQ(run(), (Journal{change_match}));
    bus.answer_next({-ENOTCONN});
    EXPECT_EQ(run(), (Journal{"release #1 match", change_match}));
    EXPECT_EQ(log.take().size(), 1U);
    EXPECT_FALSE(match_held());
    EXPECT_EQ(run(), (Journal{change_match}));
}

TEST_F(PowerMonitorTest, TakesAResultOfZeroFromSdBusForSuccess) {
    make();
    bus.answer_next({0, 0});
    watch(7.0);
}

TEST_F(PowerMonitorTest, GivesItsMatchAndThenItsCallUpWhenStopped) {
    make();
    ask();
    (*monitor)->stop();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #1 match", "release #2 Get"}));
    EXPECT_FALSE(match_held());
    EXPECT_FALSE(call_pending());
    EXPECT_FALSE(monitor->woken());
    (*monitor)->stop();
    monitor.reset();
    EXPECT_EQ(bus.take_journal(), Journal{});
}

TEST_F(PowerMonitorTest, CanBeStoppedBeforeItsFirstRun) {
    make();
    (*monitor)->stop();
    EXPECT_EQ(bus.take_journal(), Journal{});
}

TEST_F(PowerMonitorTest, GivesItsCallAndThenItsMatchUpWhenDestroyed) {
    make();
    ask();
    monitor.reset();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #2 Get", "release #1 match"}));
}

TEST_F(PowerMonitorTest, GoesOnWhereItWasWhenItIsRunAfterAStop) {
    make();
    EXPECT_EQ(run(), (Journal{change_match}));
    (*monitor)->stop();
    (void)bus.take_journal();
    EXPECT_EQ(run(), (Journal{change_match}));
    install(bus.last(), messages.reply(""));
    EXPECT_EQ(run(), (Journal{query}));
    (*monitor)->stop();
    (void)bus.take_journal();
    EXPECT_EQ(run(), (Journal{query})) << "the match counts as installed";
    deliver(bus.last(), messages.reply("v", "d", 7.0));
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), true);
    EXPECT_FALSE(monitor->woken());
}

TEST_F(PowerMonitorTest, KeepsWhatComesLateButIsNotWokenOnceItIsStopped) {
    make();
    ask();
    (*monitor)->stop();
    (void)bus.take_journal();
    install(bus.sending(1), messages.reply(""));
    deliver(bus.sending(2), messages.reply("v", "d", 7.0));
    EXPECT_EQ(received(), 7.0);
    deliver(bus.sending(1), change(1, "PowerReceived", "d", 8.0));
    EXPECT_EQ(received(), 8.0);
    EXPECT_FALSE(monitor->woken());
    EXPECT_EQ(run(), Journal{}) << "the late value counts";
    EXPECT_EQ(published(), true);
}

TEST_F(PowerMonitorTest, IsNotWokenByFailuresOnceItIsStopped) {
    make();
    ask();
    (*monitor)->stop();
    (void)bus.take_journal();
    install(bus.sending(1), messages.reply(""), denied);
    deliver(bus.sending(2), messages.reply(""), denied);
    deliver(bus.sending(2), messages.reply(""));
    EXPECT_EQ(log.take(), (Lines{"1 Failed to add match for PowerReceived: not you",
                                 "1 Failed to get PowerReceived: not you",
                                 "1 Failed to read value of PowerReceived: "
                                 "No such device or address"}));
    EXPECT_EQ(failures(), 3) << "they are counted all the same";
    EXPECT_FALSE(monitor->woken());
}

}  // namespace
