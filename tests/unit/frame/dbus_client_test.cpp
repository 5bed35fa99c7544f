#include <cerrno>

#include "tests/unit/frame/following_block.hpp"

namespace {

using namespace client_test;

TEST_F(DBusClientTest, IsIdleWithOneEventPortFiredOnce) {
    make();
    EXPECT_EQ(state(), OwnerState::Idle);
    EXPECT_EQ(Fenwa::HostAccess::eventport_names(**client), (Journal{"event_port"}));
    EXPECT_EQ((*client)->get_name(), "follower");
    EXPECT_EQ(*LayoutProbe::match_slot_field(**client), nullptr);
    EXPECT_EQ(*LayoutProbe::call_slot_field(**client), nullptr);
    EXPECT_TRUE(client->woken());
    EXPECT_FALSE(client->woken());
    EXPECT_EQ(bus.take_journal(), Journal{});
}

TEST_F(DBusClientTest, UsesTheConnectionOfItsTools) {
    make();
    EXPECT_EQ((*client)->bus(), messages.bus());
}

TEST_F(DBusClientTest, AddsTheMatchOnItsFirstRun) {
    make();
    EXPECT_TRUE(client->woken());
    EXPECT_TRUE((*client)->run());
    EXPECT_EQ(bus.take_journal(), (Journal{match_sent}));
    EXPECT_EQ(state(), OwnerState::AddingMatch);
    EXPECT_EQ(bus.last().bus, messages.bus());
    EXPECT_EQ(bus.last().slot_field, LayoutProbe::match_slot_field(**client));
    EXPECT_EQ(bus.last().userdata, static_cast<blocks::DBusClient*>(&**client));
    EXPECT_NE(bus.last().callback, nullptr);
    EXPECT_NE(bus.last().install_callback, nullptr);
    EXPECT_NE(bus.last().install_callback, bus.last().callback);
    EXPECT_FALSE(client->woken());
}

TEST_F(DBusClientTest, AsksForTheOwnerOnceTheMatchIsInstalled) {
    make();
    EXPECT_TRUE(client->woken());
    install_match();
    EXPECT_EQ(state(), OwnerState::MatchAdded);
    ask();
    EXPECT_EQ(bus.last().bus, messages.bus());
    EXPECT_EQ(bus.last().slot_field, LayoutProbe::call_slot_field(**client));
    EXPECT_EQ(bus.last().userdata, static_cast<blocks::DBusClient*>(&**client));
    EXPECT_NE(bus.last().callback, nullptr);
    EXPECT_FALSE(client->woken());
}

TEST_F(DBusClientTest, TellsTheBlockOnceAndWorksOnEveryRunWhileTheServiceIsThere) {
    make();
    install_match();
    ask();
    EXPECT_EQ(bus.last().deliver(messages.reply("s", ":1.5")), 1);
    EXPECT_TRUE(client->woken());
    EXPECT_EQ((*client)->steps, Journal{});
    EXPECT_TRUE((*client)->run());
    EXPECT_EQ((*client)->steps, (Journal{"appeared in state 5", "work in state 6"}));
    EXPECT_TRUE((*client)->run());
    EXPECT_TRUE((*client)->run());
    EXPECT_EQ((*client)->steps, (Journal{"appeared in state 5", "work in state 6",
                                         "work in state 6", "work in state 6"}));
    EXPECT_EQ(state(), OwnerState::Running);
}

TEST_F(DBusClientTest, WaitsForAServiceThatStartsLater) {
    make();
    install_match();
    ask();
    EXPECT_EQ(
        bus.last().deliver(messages.error("org.freedesktop.DBus.Error.NameHasNoOwner", "nobody")),
        0);
    EXPECT_TRUE(client->woken());
    EXPECT_EQ(state(), OwnerState::NoOwner);
    EXPECT_TRUE((*client)->run());
    EXPECT_EQ((*client)->steps, Journal{});
    EXPECT_EQ(bus.sending(1).deliver(owner_change(followed_name, ":1.9")), 0);
    EXPECT_TRUE(client->woken());
    EXPECT_TRUE((*client)->run());
    EXPECT_EQ((*client)->steps, (Journal{"appeared in state 5", "work in state 6"}));
}

TEST_F(DBusClientTest, TellsTheBlockAgainWhenTheServiceHasANewOwner) {
    make();
    install_match();
    ask();
    EXPECT_EQ(bus.last().deliver(messages.reply("s", ":1.5")), 1);
    EXPECT_TRUE((*client)->run());
    EXPECT_EQ(bus.sending(1).deliver(owner_change(followed_name, ":1.6")), 0);
    EXPECT_EQ(state(), OwnerState::OwnerAppeared);
    EXPECT_TRUE((*client)->run());
    EXPECT_EQ((*client)->steps, (Journal{"appeared in state 5", "work in state 6",
                                         "appeared in state 5", "work in state 6"}));
}

TEST_F(DBusClientTest, StopsWorkingWhenTheServiceLosesItsOwner) {
    make();
    install_match();
    ask();
    EXPECT_EQ(bus.last().deliver(messages.reply("s", ":1.5")), 1);
    EXPECT_TRUE((*client)->run());
    EXPECT_EQ(bus.sending(1).deliver(owner_change(followed_name, "")), 0);
    EXPECT_EQ(state(), OwnerState::NoOwner);
    EXPECT_TRUE((*client)->run());
    EXPECT_EQ((*client)->steps.size(), 2U);
}

TEST_F(DBusClientTest, StallsForGoodWhenTheMatchCannotBeSent) {
    make();
    EXPECT_TRUE(client->woken());
    bus.answer_next({-EPERM});
    EXPECT_TRUE((*client)->run());
    EXPECT_EQ(bus.take_journal(), (Journal{match_sent}));
    EXPECT_EQ(log.take(), (Lines{"1 Failed to add match for NameOwnerChanged: "
                                 "Operation not permitted"}));
    EXPECT_EQ(state(), OwnerState::AddingMatch);
    EXPECT_FALSE(client->woken());
    for (int again = 0; again < 3; ++again)
        EXPECT_TRUE((*client)->run());
    EXPECT_EQ(bus.take_journal(), Journal{});
    EXPECT_EQ(state(), OwnerState::AddingMatch);
}

TEST_F(DBusClientTest, StallsForGoodWhenTheQuestionCannotBeSent) {
    make();
    install_match();
    bus.answer_next({-EPERM});
    EXPECT_TRUE((*client)->run());
    EXPECT_EQ(bus.take_journal(), (Journal{question_sent}));
    EXPECT_EQ(log.take(), (Lines{"1 Failed to call method GetNameOwner: Operation not permitted"}));
    EXPECT_EQ(state(), OwnerState::QueryingOwner);
    EXPECT_FALSE(client->woken());
    for (int again = 0; again < 3; ++again)
        EXPECT_TRUE((*client)->run());
    EXPECT_EQ(bus.take_journal(), Journal{});
}

TEST_F(DBusClientTest, TakesAResultOfZeroFromSdBusForSuccess) {
    make();
    bus.answer_next({0, 0});
    install_match();
    ask();
}

TEST_F(DBusClientTest, ReleasesARefusedMatchBeforeItTriesAgain) {
    make();
    EXPECT_TRUE(client->woken());
    EXPECT_TRUE((*client)->run());
    EXPECT_EQ(
        bus.last().install(messages.error("org.freedesktop.DBus.Error.LimitsExceeded", "too many")),
        0);
    EXPECT_EQ(log.take(), (Lines{"1 Error when adding match for NameOwnerChanged: too many"}));
    EXPECT_EQ(state(), OwnerState::Idle);
    EXPECT_TRUE(client->woken());
    EXPECT_TRUE((*client)->run());
    EXPECT_EQ(bus.take_journal(), (Journal{match_sent, "release #1 match", match_sent}));
    EXPECT_EQ(bus.last().slot_field, LayoutProbe::match_slot_field(**client));
    EXPECT_EQ(state(), OwnerState::AddingMatch);
    (*client)->stop();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #2 match"}));
}

/// A client whose match has been refused while another one has an equal match.
class RefusedBesideAnEqualMatch : public DBusClientTest {
  protected:
    RefusedBesideAnEqualMatch() {
        EXPECT_TRUE(other_->run());
        EXPECT_EQ(bus.last().install(messages.reply("")), 0);
        make();
        EXPECT_TRUE((*client)->run());
        EXPECT_EQ(bus.last().install(messages.error("com.example.Error", "no")), 0);
        EXPECT_EQ(log.take().size(), 1U);
        EXPECT_EQ(bus.take_journal(), (Journal{match_sent, match_sent}));
    }

  private:
    support::BlockDriver<FollowingBlock> other_{recorders.tools, followed_name};
};

TEST_F(RefusedBesideAnEqualMatch, KeepsItUntilStopped) {
    EXPECT_TRUE((*client)->run());
    EXPECT_EQ(bus.take_journal(), (Journal{match_sent}));
    (*client)->stop();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #3 match", "release #2 match"}));
}

TEST_F(RefusedBesideAnEqualMatch, ReleasesWhatWasKeptLastWhenStopped) {
    EXPECT_TRUE((*client)->run());
    EXPECT_EQ(bus.last().install(messages.reply("")), 0);
    EXPECT_TRUE((*client)->run());
    EXPECT_EQ(bus.take_journal(), (Journal{match_sent, question_sent}));
    (*client)->stop();
    EXPECT_EQ(bus.take_journal(),
              (Journal{"release #3 match", "release #4 GetNameOwner", "release #2 match"}));
}

TEST_F(DBusClientTest, SaysUnknownWhenARefusedMatchHasNoText) {
    make();
    EXPECT_TRUE((*client)->run());
    EXPECT_EQ(bus.last().install(messages.error("com.example.Error", nullptr)), 0);
    EXPECT_EQ(log.take(), (Lines{"1 Error when adding match for NameOwnerChanged: unknown"}));
    EXPECT_EQ(state(), OwnerState::Idle);
    EXPECT_EQ(bus.take_journal(), (Journal{match_sent, "release #1 match"}));
}

TEST_F(DBusClientTest, AsksAgainAfterARefusedQuestionAndDropsTheAnsweredOne) {
    make();
    install_match();
    ask();
    EXPECT_EQ(
        bus.last().deliver(messages.error("org.freedesktop.DBus.Error.AccessDenied", "not you")),
        1);
    EXPECT_EQ(log.take(), (Lines{"1 Error when retrieving NameOwner: not you"}));
    EXPECT_EQ(state(), OwnerState::MatchAdded);
    EXPECT_TRUE(client->woken());
    EXPECT_TRUE((*client)->run());
    EXPECT_EQ(bus.take_journal(), (Journal{"release #2 GetNameOwner", question_sent}));
    EXPECT_EQ(bus.last().deliver(messages.reply("s", ":1.5")), 1);
    EXPECT_EQ(state(), OwnerState::OwnerAppeared);
}

TEST_F(DBusClientTest, AsksAgainOnTheNextRunAfterAnAnswerWithoutAString) {
    make();
    install_match();
    ask();
    EXPECT_EQ(bus.last().deliver(messages.reply("u", 5U)), -ENXIO);
    EXPECT_EQ(log.take(), (Lines{"2 check_name_owner_callback failed to parse message: "
                                 "No such device or address"}));
    EXPECT_EQ(state(), OwnerState::MatchAdded);
    EXPECT_FALSE(client->woken());
    EXPECT_TRUE((*client)->run());
    EXPECT_EQ(bus.take_journal(), (Journal{"release #2 GetNameOwner", question_sent}));
}

TEST_F(DBusClientTest, TakesAnEmptyOwnerForNone) {
    make();
    install_match();
    ask();
    EXPECT_EQ(bus.last().deliver(messages.reply("s", "")), 1);
    EXPECT_EQ(state(), OwnerState::NoOwner);
    EXPECT_TRUE(client->woken());
}

TEST_F(DBusClientTest, ComparesNamesByLengthAndBytes) {
    make("com.example.Sensor");
    (*client)->run();
    for (const char* other : {"com.example.Sensors", "com.example.Senso", "com.example.sensor",
                              "Xcom.example.Sensor", ""}) {
        EXPECT_EQ(bus.last().deliver(owner_change(other, ":1.5")), 0);
        EXPECT_EQ(state(), OwnerState::AddingMatch) << other;
    }
    EXPECT_EQ(bus.last().deliver(owner_change("com.example.Sensor", ":1.5")), 0);
    EXPECT_EQ(state(), OwnerState::OwnerAppeared);
    EXPECT_EQ(bus.take_journal(), (Journal{match_sent}));
}

TEST_F(DBusClientTest, FollowsOnlyTheEmptyNameWhenItsServiceNameIsEmpty) {
    make("");
    (*client)->run();
    EXPECT_EQ(bus.last().deliver(owner_change("com.example.A", ":1.5")), 0);
    EXPECT_EQ(state(), OwnerState::AddingMatch);
    EXPECT_EQ(bus.last().deliver(owner_change("", ":1.5")), 0);
    EXPECT_EQ(state(), OwnerState::OwnerAppeared);
    EXPECT_EQ(bus.take_journal(), (Journal{match_sent}));
}

TEST_F(DBusClientTest, ReleasesMatchThenCallWhenStopped) {
    make();
    install_match();
    ask();
    (*client)->stop();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #1 match", "release #2 GetNameOwner"}));
    EXPECT_EQ(state(), OwnerState::Stopped);
    EXPECT_EQ(*LayoutProbe::match_slot_field(**client), nullptr);
    EXPECT_EQ(*LayoutProbe::call_slot_field(**client), nullptr);
    EXPECT_FALSE(client->woken());
    (*client)->stop();
    client.reset();
    EXPECT_EQ(bus.take_journal(), Journal{});
}

TEST_F(DBusClientTest, ReleasesCallThenMatchWhenDestroyed) {
    make();
    install_match();
    ask();
    client.reset();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #2 GetNameOwner", "release #1 match"}));
}

TEST_F(RefusedBesideAnEqualMatch, ReleasesWhatWasKeptLastWhenDestroyed) {
    EXPECT_TRUE((*client)->run());
    (void)bus.take_journal();
    client.reset();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #3 match", "release #2 match"}));
}

TEST_F(DBusClientTest, IsWokenUnlessStopped) {
    make();
    EXPECT_TRUE(client->woken());
    (*client)->wake();
    EXPECT_TRUE(client->woken());
    (*client)->stop();
    (*client)->wake();
    EXPECT_FALSE(client->woken());
}

TEST_F(DBusClientTest, ReadsWhatItIsToldUnlessTheResultIsNegative) {
    make();
    install_match();
    ask();
    bus.change_results(support::MessageFunction::read, {0, -EPERM, 0});
    EXPECT_EQ(bus.last().deliver(messages.reply("s", ":1.5")), 0);
    EXPECT_EQ(state(), OwnerState::OwnerAppeared);
    EXPECT_TRUE(client->woken());
    EXPECT_EQ(bus.sending(1).deliver(owner_change(followed_name, "")), -EPERM);
    EXPECT_EQ(log.take(),
              (Lines{"2 NameOwnerChanged failed to parse message: Operation not permitted"}));
    EXPECT_EQ(state(), OwnerState::OwnerAppeared);
    EXPECT_FALSE(client->woken());
    EXPECT_EQ(bus.sending(1).deliver(owner_change(followed_name, "")), 0);
    EXPECT_EQ(state(), OwnerState::NoOwner);
}

TEST_F(DBusClientTest, AsksAgainAfterAnAnswerWithAnyNegativeResult) {
    make();
    install_match();
    ask();
    bus.change_results(support::MessageFunction::read, {-EPERM});
    EXPECT_EQ(bus.last().deliver(messages.reply("s", ":1.5")), -EPERM);
    EXPECT_EQ(log.take(), (Lines{"2 check_name_owner_callback failed to parse message: "
                                 "Operation not permitted"}));
    EXPECT_EQ(state(), OwnerState::MatchAdded);
    EXPECT_FALSE(client->woken());
}

TEST_F(DBusClientTest, TakesNothingFromAnErrorInPlaceOfAnOwnerChange) {
    make();
    install_match();
    ask();
    EXPECT_EQ(bus.sending(1).deliver(
                  messages.error_with_body("com.example.E", "sss", followed_name, "", ":1.5")),
              -1);
    EXPECT_EQ(log.take(),
              (Lines{std::string("1 Error when handling NameOwnerChanged: ") + followed_name}));
    EXPECT_EQ(state(), OwnerState::QueryingOwner);
    EXPECT_FALSE(client->woken());
}

}  // namespace
