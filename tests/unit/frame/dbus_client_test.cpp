#include "tests/unit/frame/following_block.hpp"

namespace {

using namespace client_test;

TEST_F(DBusClientTest, IsIdleWithOneEventPortFiredOnce) {
    EXPECT_EQ(effects_of([this] { build(followed_name); }),
              (Journal{"event event_port", "fire event_port"}));
    EXPECT_EQ(state(), OwnerState::Idle);
    EXPECT_EQ(Fenwa::HostAccess::eventport_names(block()), (Journal{"event_port"}));
    EXPECT_EQ(block().get_name(), "follower");
    EXPECT_FALSE(match_held());
    EXPECT_FALSE(call_pending());
}

TEST_F(DBusClientTest, TakesTheConnectionAnewAtEachUse) {
    build(followed_name);
    auto* const client = static_cast<blocks::DBusClient*>(&block());
    EXPECT_EQ(run(), (Journal{owner_match}));
    expect_handed_over(LayoutProbe::match_slot_field(block()), client);
    recorders.tools.use_bus(other_bus());
    EXPECT_EQ(install(bus.last(), messages.reply("")), wake_up);
    EXPECT_EQ(block().bus(), other_bus());
    EXPECT_EQ(run(), (Journal{question}));
    expect_handed_over(LayoutProbe::call_slot_field(block()), client);
}

TEST_F(DBusClientTest, TellsTheBlockOnceOfEachOwnerAndWorksOnEveryRunWhileThereIsOne) {
    follow();
    EXPECT_EQ(run(), first_work);
    EXPECT_EQ(run(), later_work);
    EXPECT_EQ(run(), later_work);
    EXPECT_EQ(change_owner(followed_name, ":1.6"), wake_up);
    EXPECT_EQ(run(), first_work);
    EXPECT_EQ(change_owner(followed_name, ""), wake_up);
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(change_owner(followed_name, ":1.9"), wake_up);
    EXPECT_EQ(run(), first_work);
}

TEST_F(DBusClientTest, WorksAlsoWhenItsServiceIsLostWhileTheBlockIsTold) {
    follow();
    block().when_it_appears = [this] {
        EXPECT_EQ(bus.sending(1).deliver(messages.owner_change(followed_name, "", "")), 0);
    };
    EXPECT_EQ(run(), (Journal{"appeared in state 5", "fire event_port", "work in state 6"}));
    EXPECT_EQ(state(), OwnerState::Running);
}

TEST_F(DBusClientTest, StallsForGoodWhenTheMatchCannotBeSent) {
    build(followed_name);
    EXPECT_TRUE(woken());
    bus.answer_next({-EPERM});
    remark([this] { return static_cast<int>(state()); });
    EXPECT_EQ(run(), (Journal{owner_match + " | 0",
                              "1 Failed to add match for NameOwnerChanged: "
                              "Operation not permitted | 0"}));
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(state(), OwnerState::AddingMatch);
    EXPECT_FALSE(woken());
}

TEST_F(DBusClientTest, StallsForGoodWhenTheQuestionCannotBeSent) {
    install_match();
    EXPECT_TRUE(woken());
    bus.answer_next({-EPERM});
    remark([this] { return static_cast<int>(state()); });
    EXPECT_EQ(run(), (Journal{question + " | 2",
                              "1 Failed to call method GetNameOwner: "
                              "Operation not permitted | 2"}));
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(state(), OwnerState::QueryingOwner);
    EXPECT_FALSE(woken());
}

TEST_F(DBusClientTest, TakesAResultOfZeroFromSdBusForSuccess) {
    bus.answer_next({0, 0});
    ask();
}

TEST_F(DBusClientTest, ReleasesARefusedMatchBeforeItTriesAgain) {
    build(followed_name);
    EXPECT_EQ(run(), (Journal{owner_match}));
    EXPECT_EQ(install(bus.last(), messages.error("com.example.Error", "too many")),
              (Journal{"1 Error when adding match for NameOwnerChanged: too many",
                       "release #1 match", "fire event_port"}));
    EXPECT_EQ(run(), (Journal{owner_match}));
    EXPECT_EQ(bus.last().slot_field, LayoutProbe::match_slot_field(block()));
    EXPECT_EQ(stop(), (Journal{"release #2 match"}));
}

TEST_F(DBusClientTest, DropsTheAnsweredQuestionWhereItAsksAgain) {
    ask();
    for (const char* release : {"release #2 GetNameOwner", "release #3 GetNameOwner"}) {
        EXPECT_EQ(deliver(bus.last(), messages.error("com.example.Error", "no")).size(), 3U);
        EXPECT_EQ(run(), (Journal{release, question}));
    }
    EXPECT_EQ(deliver(bus.last(), messages.reply("u", 5U)).size(), 2U);
    EXPECT_EQ(run(), (Journal{"release #4 GetNameOwner", question}));
}

/// A client whose match was refused while another client had an equal one. It has asked again.
class RefusedBesideAnEqualMatch : public DBusClientTest {
  protected:
    RefusedBesideAnEqualMatch() {
        EXPECT_TRUE(other_->run());
        EXPECT_EQ(bus.last().install(messages.reply("")), 0);
        build(followed_name);
        EXPECT_TRUE(block().run());
        EXPECT_EQ(bus.last().install(messages.error("com.example.Error", "no")), 0);
        EXPECT_EQ(log.take().size(), 1U);
        EXPECT_TRUE(block().run());
        EXPECT_EQ(bus.take_journal(), (Journal{owner_match, owner_match, owner_match}));
    }

  private:
    BlockDriver<FollowingBlock> other_{recorders.tools, followed_name};
};

TEST_F(RefusedBesideAnEqualMatch, ReleasesWhatWasKeptLastWhenStopped) {
    EXPECT_EQ(install(bus.last(), messages.reply("")), wake_up);
    EXPECT_EQ(run(), (Journal{question}));
    EXPECT_EQ(stop(), (Journal{"release #3 match", "release #4 GetNameOwner", "release #2 match"}));
}

TEST_F(RefusedBesideAnEqualMatch, ReleasesWhatWasKeptLastWhenDestroyed) {
    EXPECT_EQ(destroy(), (Journal{"release #3 match", "release #2 match"}));
}

TEST_F(DBusClientTest, ComparesNamesByLengthAndBytes) {
    build("com.example.Sensor");
    EXPECT_EQ(run(), (Journal{owner_match}));
    for (const char* other : {"com.example.Sensors", "com.example.Senso", "com.example.sensor",
                              "Xcom.example.Sensor", ""}) {
        (void)change_owner(other, ":1.5");
        EXPECT_EQ(state(), OwnerState::AddingMatch) << other;
    }
    (void)change_owner("com.example.Sensor", ":1.5");
    EXPECT_EQ(state(), OwnerState::OwnerAppeared);
}

TEST_F(DBusClientTest, FollowsOnlyTheEmptyNameWhenItsServiceNameIsEmpty) {
    build("");
    EXPECT_EQ(run(), (Journal{owner_match}));
    (void)change_owner("com.example.A", ":1.5");
    EXPECT_EQ(state(), OwnerState::AddingMatch);
    (void)change_owner("", ":1.5");
    EXPECT_EQ(state(), OwnerState::OwnerAppeared);
}

TEST_F(DBusClientTest, ReleasesMatchThenCallWhenStopped) {
    ask();
    EXPECT_EQ(stop(), (Journal{"release #1 match", "release #2 GetNameOwner"}));
    EXPECT_EQ(stop(), Journal{});
    EXPECT_EQ(destroy(), Journal{});
}

TEST_F(DBusClientTest, ReleasesCallThenMatchWhenDestroyed) {
    ask();
    EXPECT_EQ(destroy(), (Journal{"release #2 GetNameOwner", "release #1 match"}));
}

TEST_F(DBusClientTest, TakesWhatItReadsUnlessTheResultIsNegative) {
    ask();
    const std::string denied_line = " failed to parse message: Operation not permitted";
    bus.change_results(MessageFunction::read, {-EPERM, 0, -EPERM, 0});
    EXPECT_EQ(deliver(bus.last(), messages.reply("s", ":1.5")),
              (Journal{"2 check_name_owner_callback" + denied_line, returns(-EPERM)}));
    EXPECT_EQ(state(), OwnerState::MatchAdded);
    EXPECT_EQ(deliver(bus.last(), messages.reply("s", ":1.5")), wake_up);
    EXPECT_EQ(state(), OwnerState::OwnerAppeared);
    EXPECT_EQ(change_owner(followed_name, ""),
              (Journal{"2 NameOwnerChanged" + denied_line, returns(-EPERM)}));
    EXPECT_EQ(state(), OwnerState::OwnerAppeared);
    EXPECT_EQ(change_owner(followed_name, ""), wake_up);
    EXPECT_EQ(state(), OwnerState::NoOwner);
}

TEST_F(DBusClientTest, ReadsNothingOfWhatTellsItAllByItsKind) {
    ask();
    (void)readings();
    (void)install(bus.sending(1), messages.reply("s", "more"));
    (void)deliver(bus.sending(2),
                  messages.error("org.freedesktop.DBus.Error.NameHasNoOwner", "nobody"));
    EXPECT_EQ(readings(), Journal{});
}

}  // namespace
