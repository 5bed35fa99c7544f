#include "tests/unit/frame/following_block.hpp"

namespace {

using namespace client_test;
using support::denied;

/// Calls every handler of a client that has asked for the owner of its service, and looks at the
/// state that it has at each effect: a run on another thread may begin as soon as the port is
/// fired.
class DBusClientOrderTest : public DBusClientTest {
  protected:
    void SetUp() override {
        make();
        install_match();
        ask();
        (void)take();
        remark([this] { return static_cast<int>(state()); });
    }

    [[nodiscard]] const support::Sending& match() const { return bus.sending(1); }
    [[nodiscard]] const support::Sending& question() const { return bus.sending(2); }

    /// What a handler does that has returned `result`. The client asks for the owner again.
    Journal done(int result, int expected = 0) {
        EXPECT_EQ(result, expected);
        LayoutProbe::state(**client) = OwnerState::QueryingOwner;
        return take();
    }
};

TEST_F(DBusClientTest, MakesItsEventPortAndFiresItOnceWhenItIsBuilt) {
    make();
    EXPECT_EQ(take(), (Journal{"event event_port", "fire event_port"}));
}

TEST_F(DBusClientOrderTest, RecordsWhatItHearsAndIsThenWokenOnce) {
    EXPECT_EQ(done(match().install(messages.reply(""))), (Journal{"fire event_port | 2"}));
    EXPECT_EQ(done(match().install(messages.error("com.example.Error", "no"))),
              (Journal{"1 Error when adding match for NameOwnerChanged: no | 3",
                       "release #1 match | 3", "fire event_port | 0"}));
    EXPECT_EQ(done(question().deliver(messages.reply("s", ":1.5")), 1),
              (Journal{"fire event_port | 5"}));
    EXPECT_EQ(done(question().deliver(messages.reply("s", "")), 1),
              (Journal{"fire event_port | 4"}));
    EXPECT_EQ(done(question().deliver(
                  messages.error("org.freedesktop.DBus.Error.NameHasNoOwner", "nobody"))),
              (Journal{"fire event_port | 4"}));
    EXPECT_EQ(done(question().deliver(messages.error("com.example.Error", "no")), 1),
              (Journal{"1 Error when retrieving NameOwner: no | 3", "fire event_port | 2"}));
    EXPECT_EQ(done(match().deliver(owner_change(followed_name, ":1.7"))),
              (Journal{"fire event_port | 5"}));
    EXPECT_EQ(done(match().deliver(owner_change(followed_name, ""))),
              (Journal{"fire event_port | 4"}));
    EXPECT_EQ(done(match().deliver(owner_change("com.example.Other", ""))),
              (Journal{"fire event_port | 3"}));
}

TEST_F(DBusClientOrderTest, DoesNotLookAtItsErrorArguments) {
    EXPECT_EQ(done(match().install(messages.reply(""), denied)), (Journal{"fire event_port | 2"}));
    EXPECT_EQ(done(question().deliver(messages.reply("s", ":1.5"), denied), 1),
              (Journal{"fire event_port | 5"}));
    EXPECT_EQ(done(match().deliver(owner_change(followed_name, ""), denied)),
              (Journal{"fire event_port | 4"}));
}

TEST_F(DBusClientOrderTest, ReadsNothingOfWhatTellsItAllByItsKind) {
    EXPECT_EQ(done(match().install(messages.reply("s", "more"))), (Journal{"fire event_port | 2"}));
    EXPECT_EQ(done(question().deliver(
                  messages.error("org.freedesktop.DBus.Error.NameHasNoOwner", "nobody"))),
              (Journal{"fire event_port | 4"}));
    EXPECT_EQ(readings(), Journal{});
}

TEST_F(DBusClientOrderTest, IsStoppedBeforeItGivesItsSlotsUpAndLeavesTheStopOfItsBaseAlone) {
    (*client)->stop();
    EXPECT_EQ(take(), (Journal{"release #1 match | 7", "release #2 GetNameOwner | 7"}));
}

TEST_F(DBusClientOrderTest, SendsBeforeItWaits) {
    LayoutProbe::state(**client) = OwnerState::MatchAdded;
    bus.answer_next({-5});
    EXPECT_TRUE((*client)->run());
    EXPECT_EQ(take(), (Journal{"release #2 GetNameOwner | 2", question_sent + std::string(" | 2"),
                               "1 Failed to call method GetNameOwner: Input/output error | 2"}));
    LayoutProbe::state(**client) = OwnerState::Idle;
    bus.answer_next({-5});
    EXPECT_TRUE((*client)->run());
    EXPECT_EQ(take(),
              (Journal{match_sent + std::string(" | 0"),
                       "1 Failed to add match for NameOwnerChanged: Input/output error | 0"}));
}

TEST_F(DBusClientOrderTest, WorksAlsoWhenItsServiceIsLostWhileTheBlockIsTold) {
    EXPECT_EQ(done(question().deliver(messages.reply("s", ":1.5")), 1).size(), 1U);
    LayoutProbe::state(**client) = OwnerState::OwnerAppeared;
    (*client)->when_it_appears = [this] {
        EXPECT_EQ(match().deliver(owner_change(followed_name, "")), 0);
    };
    EXPECT_TRUE((*client)->run());
    EXPECT_EQ((*client)->steps, (Journal{"appeared in state 5", "work in state 6"}));
    EXPECT_EQ(state(), OwnerState::Running);
}

TEST_F(DBusClientTest, TakesTheConnectionAnewAtEachUse) {
    make();
    EXPECT_TRUE((*client)->run());
    recorders.tools.use_bus(other_bus());
    EXPECT_EQ(bus.last().install(messages.reply("")), 0);
    EXPECT_EQ((*client)->bus(), other_bus());
    EXPECT_TRUE((*client)->run());
    EXPECT_EQ(bus.sending(1).bus, messages.bus());
    EXPECT_EQ(bus.sending(2).bus, other_bus());
    EXPECT_EQ(bus.take_journal(), (Journal{match_sent, question_sent}));
}

}  // namespace
