#include <cerrno>

#include "tests/unit/video/on_screen_controls_fixture.hpp"

namespace {

using namespace controls_test;

TEST_F(OnScreenControlsTest, AddsTheMatchInItsFirstRun) {
    make(true);
    EXPECT_EQ(run(), (Journal{owner_match}));
    EXPECT_EQ(state(), ControlsState::AddingMatch);
    EXPECT_EQ(bus.last().bus, messages.bus());
    EXPECT_EQ(bus.last().slot_field, LayoutProbe::match_slot_field(**controls));
    EXPECT_EQ(bus.last().userdata, &**controls);
    EXPECT_NE(bus.last().callback, nullptr);
    EXPECT_NE(bus.last().install_callback, nullptr);
    EXPECT_NE(bus.last().install_callback, bus.last().callback);
    EXPECT_FALSE(controls->woken());
}

TEST_F(OnScreenControlsTest, AsksForTheOwnerAndThenForTheList) {
    make(true);
    list();
    for (const std::size_t call : {2, 3}) {
        EXPECT_EQ(bus.sending(call).bus, messages.bus());
        EXPECT_EQ(bus.sending(call).slot_field, LayoutProbe::call_slot_field(**controls));
        EXPECT_EQ(bus.sending(call).userdata, &**controls);
        EXPECT_NE(bus.sending(call).callback, nullptr);
    }
    EXPECT_NE(bus.sending(2).callback, bus.sending(3).callback);
    EXPECT_EQ(state(), ControlsState::ListingFeatures);
    EXPECT_FALSE(controls->woken());
}

TEST_F(OnScreenControlsTest, WaitsForAServiceThatStartsLater) {
    make(true);
    ask();
    answer(messages.error("org.freedesktop.DBus.Error.NameHasNoOwner", "nobody"));
    EXPECT_TRUE(controls->woken());
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(state(), ControlsState::NoOwner);
    restart_service();
    EXPECT_EQ(run(), (Journal{"release #2 GetNameOwner", list_query}));
}

TEST_F(OnScreenControlsTest, StallsForGoodWhenTheMatchCannotBeSent) {
    make(true);
    bus.answer_next({-EPERM});
    EXPECT_EQ(run(), (Journal{owner_match}));
    EXPECT_EQ(log.take(), (Lines{"1 Failed to add match for NameOwnerChanged: "
                                 "Operation not permitted"}));
    EXPECT_EQ(state(), ControlsState::AddingMatch);
    EXPECT_FALSE(match_held());
    EXPECT_FALSE(controls->woken());
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(run(), Journal{});
}

TEST_F(OnScreenControlsTest, StallsUntilAnOwnerChangeWhenTheQuestionCannotBeSent) {
    make(true);
    install_match();
    bus.answer_next({-ENOBUFS});
    EXPECT_EQ(run(), (Journal{owner_query}));
    EXPECT_EQ(log.take(),
              (Lines{"1 Failed to call method GetNameOwner: No buffer space available"}));
    EXPECT_EQ(state(), ControlsState::QueryingOwner);
    EXPECT_FALSE(call_held());
    EXPECT_FALSE(controls->woken());
    EXPECT_EQ(run(), Journal{});
    restart_service();
    EXPECT_EQ(run(), (Journal{list_query}));
}

TEST_F(OnScreenControlsTest, StallsUntilAnOwnerChangeWhenTheListCannotBeAskedFor) {
    make(true);
    ask();
    deliver(bus.last(), messages.reply("s", ":1.5"), 1);
    bus.answer_next({-EPERM});
    EXPECT_EQ(run(), (Journal{"release #2 GetNameOwner", list_query}));
    EXPECT_EQ(log.take(), (Lines{"1 Failed to call method ListAddedFeatures: "
                                 "Operation not permitted"}));
    EXPECT_EQ(state(), ControlsState::ListingFeatures);
    EXPECT_TRUE(controls->woken()) << "by the answer before";
    EXPECT_EQ(run(), Journal{});
    restart_service();
    EXPECT_EQ(run(), (Journal{list_query}));
}

TEST_F(OnScreenControlsTest, TakesAResultOfZeroFromSdBusForSuccess) {
    bus.answer_next({0, 0, 0, 0});
    synchronize();
    EXPECT_TRUE(match_held());
    EXPECT_TRUE(call_held());
}

TEST_F(OnScreenControlsTest, ReleasesARefusedMatchBeforeItTriesAgain) {
    make(true);
    EXPECT_EQ(run(), (Journal{owner_match}));
    EXPECT_EQ(
        bus.last().install(messages.error("org.freedesktop.DBus.Error.LimitsExceeded", "too many")),
        0);
    EXPECT_EQ(log.take(), (Lines{"1 Error when adding match for NameOwnerChanged: too many"}));
    EXPECT_EQ(state(), ControlsState::Idle);
    EXPECT_TRUE(controls->woken());
    EXPECT_EQ(run(), (Journal{"release #1 match", owner_match}));
    EXPECT_EQ(bus.last().slot_field, LayoutProbe::match_slot_field(**controls));
    (*controls)->stop();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #2 match"}));
}

TEST_F(OnScreenControlsTest, AsksAgainAfterARefusedQuestion) {
    make(true);
    ask();
    for (int again = 0; again < 3; ++again) {
        deliver(bus.last(), messages.error("org.freedesktop.DBus.Error.AccessDenied", "not you"),
                1);
        EXPECT_EQ(log.take(), (Lines{"1 Error when retrieving NameOwner: not you"}));
        EXPECT_TRUE(controls->woken());
        const std::string answered = bus.last().release_text;
        EXPECT_EQ(run(), (Journal{answered, owner_query}));
    }
}

TEST_F(OnScreenControlsTest, ComparesTheServicesNameByLengthAndBytes) {
    make(true);
    install_match();
    for (const char* other : {"com.tarlo.Onscreencontrols", "com.tarlo.Onscreencontrols10",
                              "com.tarlo.onscreencontrols1", ":1.5", ""}) {
        change_owner(other, ":1.6");
        EXPECT_EQ(state(), ControlsState::MatchAdded) << other;
        EXPECT_TRUE(controls->woken()) << other;
    }
}

TEST_F(OnScreenControlsTest, ListsAndReconcilesAgainWhateverItWasDoingWhenTheServiceRestarts) {
    synchronize();
    change_owner(service_name, "");
    EXPECT_EQ(state(), ControlsState::NoOwner);
    EXPECT_EQ(run(), Journal{});
    restart_service();
    EXPECT_EQ(run(), (Journal{"release #4 AddFeatures", list_query}));
    answer_list(0U);
    EXPECT_EQ(run(), (Journal{"release #5 ListAddedFeatures", first_addition}));
    restart_service();
    EXPECT_EQ(run(), (Journal{list_query})) << "the addition is still unanswered";
}

TEST_F(OnScreenControlsTest, ReadsAnOwnerChangeUnlessTheResultIsNegative) {
    make(true);
    ask();
    bus.change_results(support::MessageFunction::read, {-EPERM, 0});
    deliver(bus.sending(1), messages.owner_change(service_name, "", ":1.6"), -EPERM);
    EXPECT_EQ(log.take(),
              (Lines{"2 NameOwnerChanged failed to parse message: Operation not permitted"}));
    EXPECT_EQ(state(), ControlsState::QueryingOwner);
    EXPECT_FALSE(controls->woken());
    restart_service();
}

TEST_F(OnScreenControlsTest, TakesNothingFromAnErrorInPlaceOfAnOwnerChange) {
    make(true);
    ask();
    deliver(bus.sending(1), messages.error("com.example.E", "not you"), -1);
    EXPECT_EQ(log.take(), (Lines{"1 Error when handling NameOwnerChanged: not you"}));
    EXPECT_EQ(state(), ControlsState::QueryingOwner);
    EXPECT_FALSE(controls->woken());
}

}  // namespace
