#include <cerrno>

#include "tests/unit/video/on_screen_controls_fixture.hpp"

namespace {

using namespace controls_test;

TEST_F(OnScreenControlsTest, GivesItsSlotsUpAndThenTakesItsButtonsAwayWhenStopped) {
    synchronize();
    (*controls)->stop();
    EXPECT_EQ(bus.take_journal(),
              (Journal{"release #1 match", "release #4 AddFeatures", last_removal("WDR1")}));
    EXPECT_EQ(bus.last().bus, messages.bus());
    EXPECT_EQ(bus.last().slot_field, nullptr);
    EXPECT_EQ(bus.last().callback, nullptr);
    EXPECT_EQ(bus.last().userdata, nullptr);
    EXPECT_FALSE(match_held());
    EXPECT_FALSE(call_held());
    EXPECT_EQ(state(), ControlsState::Stopped);
    EXPECT_FALSE(controls->woken());
}

TEST_F(OnScreenControlsTest, SendsNothingWhenItIsStoppedWithNothingAdded) {
    add();
    (*controls)->stop();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #1 match", "release #4 AddFeatures"}))
        << "the addition was never answered";
    EXPECT_EQ(run(), Journal{});
}

TEST_F(OnScreenControlsTest, CanBeStoppedBeforeItsFirstRun) {
    make(true);
    (*controls)->stop();
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(state(), ControlsState::Stopped);
    EXPECT_FALSE(controls->woken());
}

TEST_F(OnScreenControlsTest, RemovesEverythingInItsOrderAlsoWhenSomethingCannotBeSent) {
    make(true);
    added() = {{"WDR1", "en-us"}, {"a\"b", "sv"}, {"", ""}};
    bus.answer_next({-EPERM, -ENOBUFS, 0});
    (*controls)->stop();
    const Journal removals{last_removal("WDR1"), last_removal("a\"b", "sv"), last_removal("", "")};
    EXPECT_EQ(bus.take_journal(), removals);
    EXPECT_EQ(log.take(),
              (Lines{"2 Failed to remove feature \"WDR1\": Operation not permitted",
                     "2 Failed to remove feature \"a\"b\": No buffer space available"}));
    EXPECT_EQ(added().size(), 3U);
    (*controls)->stop();
    EXPECT_EQ(bus.take_journal(), removals) << "what was added is not forgotten";
}

TEST_F(OnScreenControlsTest, GivesEveryUnansweredCallUpWhenStopped) {
    add();
    restart_service();
    EXPECT_EQ(run(), (Journal{list_query}));
    (*controls)->stop();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #1 match", "release #5 ListAddedFeatures",
                                           "release #4 AddFeatures"}));
    controls.reset();
    EXPECT_EQ(bus.take_journal(), Journal{});
}

TEST_F(OnScreenControlsTest, GivesUpItsCallThenItsMatchAndThenOlderCallsWhenDestroyed) {
    synchronize();
    restart_service();
    EXPECT_EQ(run(), (Journal{"release #4 AddFeatures", list_query}));
    restart_service();
    EXPECT_EQ(run(), (Journal{list_query}));
    controls.reset();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #6 ListAddedFeatures", "release #1 match",
                                           "release #5 ListAddedFeatures"}))
        << "only a stop removes the buttons";
}

TEST_F(OnScreenControlsTest, HearsTheReplyToAReplacedCallAsLongAsItLives) {
    add();
    restart_service();
    EXPECT_EQ(run(), (Journal{list_query}));
    restart_service();
    EXPECT_EQ(run(), (Journal{list_query}));
    deliver(bus.sending(4), messages.reply(""));
    EXPECT_EQ(added(), (Features{{"WDR1", "en-us"}}));
    EXPECT_EQ(state(), ControlsState::Synchronized);
    deliver(bus.sending(5), messages.reply("a(sas)", 1U, "WDR1", 1U, "en-us"));
    EXPECT_EQ(state(), ControlsState::FeaturesListed);
    EXPECT_EQ(bus.take_journal(), Journal{});
    answer_list(0U);
    EXPECT_EQ(bus.take_journal(),
              (Journal{"release #4 AddFeatures", "release #5 ListAddedFeatures"}))
        << "once every call has been answered";
    EXPECT_TRUE(call_held());
}

TEST_F(OnScreenControlsTest, KeepsNothingOfACallThatCouldNotBeSent) {
    add();
    bus.answer_next({-ENOBUFS});
    restart_service();
    EXPECT_EQ(run(), (Journal{list_query}));
    EXPECT_EQ(log.take().size(), 1U);
    EXPECT_FALSE(call_held());
    deliver(bus.sending(4), messages.reply(""));
    EXPECT_EQ(bus.take_journal(), (Journal{"release #4 AddFeatures"}));
}

TEST_F(OnScreenControlsTest, WorksOnAfterAStopWhenASignalOfItsServiceWasBeingDispatched) {
    add();
    (*controls)->stop();
    (void)bus.take_journal();
    restart_service();
    EXPECT_EQ(run(), (Journal{list_query}));
    answer_list(0U);
    EXPECT_EQ(run(), (Journal{"release #5 ListAddedFeatures", first_addition}));
    controls.reset();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #6 AddFeatures"}));
}

}  // namespace
