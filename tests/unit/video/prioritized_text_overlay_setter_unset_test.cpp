#include <cerrno>

#include "tests/unit/video/prioritized_text_overlay_setter_fixture.hpp"

namespace {

using namespace overlay_test;

using support::denied;
constexpr sd_bus_error silent = SD_BUS_ERROR_MAKE_CONST("com.example.Error", nullptr);

TEST_F(PrioritizedTextOverlaySetterTest, TakesItsTextAwayWhenDestroyed) {
    show();
    bus.end_next_call(1, SD_BUS_ERROR_NULL, messages.reply("i", 5));
    EXPECT_EQ(destroy(), (Journal{unset}));
    EXPECT_EQ(bus.last().bus, messages.bus());
    EXPECT_EQ(bus.replies_held(), 0U);
}

TEST_F(PrioritizedTextOverlaySetterTest, TakesNothingAwayThatHasALimitedDuration) {
    for (const auto& [duration, sent] :
         {std::pair{5, "5"}, {1, "1"}, {-1, "4294967295"}, {-2147483647 - 1, "2147483648"}}) {
        make(duration);
        EXPECT_EQ(start(), (Journal{set(sent)}));
        answer(messages.reply(""));
        EXPECT_TRUE(overlay_set());
        EXPECT_EQ(destroy(), Journal{}) << duration;
    }
}

TEST_F(PrioritizedTextOverlaySetterTest, TakesNothingAwayThatWasNeverAnswered) {
    make(0);
    EXPECT_EQ(start(), (Journal{set("0")}));
    EXPECT_EQ(destroy(), (Journal{"release #1 Set"}));
}

TEST_F(PrioritizedTextOverlaySetterTest, TakesAwayWhatWasAnsweredWithAnError) {
    make(0);
    EXPECT_EQ(start(), (Journal{set("0")}));
    answer(messages.error("org.freedesktop.DBus.Error.ServiceUnknown", "nobody there"));
    bus.end_next_call(0);
    EXPECT_EQ(destroy(), (Journal{unset}));
}

TEST_F(PrioritizedTextOverlaySetterTest, TakesItsTextAwayBeforeItGivesItsCallsUp) {
    show();
    EXPECT_EQ(start(), (Journal{set("0")}));
    EXPECT_EQ(start(), (Journal{set("0")}));
    bus.end_next_call(0);
    EXPECT_EQ(destroy(), (Journal{unset, "release #3 Set", "release #2 Set"}));
}

TEST_F(PrioritizedTextOverlaySetterTest, SaysWhyTheTextCouldNotBeTakenAway) {
    show();
    bus.end_next_call(-EIO, denied);
    EXPECT_EQ(destroy(), (Journal{unset}));
    EXPECT_EQ(log.take(), (Lines{"2 Could not unset prioritized text overlay: not you"}));
}

TEST_F(PrioritizedTextOverlaySetterTest, EndsTheLineWithThePrefixWhenTheErrorHasNoText) {
    show();
    bus.end_next_call(-EIO, silent);
    EXPECT_EQ(destroy(), (Journal{unset}));
    EXPECT_EQ(log.take(), (Lines{"2 Could not unset prioritized text overlay: "}));
}

TEST_F(PrioritizedTextOverlaySetterTest, BelievesTheErrorAlsoWhenTheResultIsNone) {
    show();
    bus.end_next_call(1, denied, messages.reply(""));
    EXPECT_EQ(destroy(), (Journal{unset}));
    EXPECT_EQ(log.take(), (Lines{"2 Could not unset prioritized text overlay: not you"}));
}

TEST_F(PrioritizedTextOverlaySetterTest, SaysWhatTheResultMeansWhenThereIsNoError) {
    show();
    bus.end_next_call(-EPERM);
    EXPECT_EQ(destroy(), (Journal{unset}));
    EXPECT_EQ(log.take(),
              (Lines{"2 Could not unset prioritized text overlay: Operation not permitted"}));
}

}  // namespace
