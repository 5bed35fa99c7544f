#include <cerrno>
#include <functional>

#include "tests/unit/frame/following_block.hpp"

namespace {

using namespace client_test;

constexpr int first_unknown_state = 8;

/// Puts one event before a client in every state: what follows must not depend on the state,
/// unless the test says so.
class DBusClientInEveryStateTest : public DBusClientTest, public testing::WithParamInterface<int> {
  protected:
    void SetUp() override {
        make();
        EXPECT_TRUE(client->woken());
        install_match();
        ask();
        LayoutProbe::state(**client) = before();
    }

    void TearDown() override {
        (*client)->stop();
        (void)bus.take_journal();
    }

    [[nodiscard]] static OwnerState before() { return static_cast<OwnerState>(GetParam()); }
    [[nodiscard]] static bool stopped() { return before() == OwnerState::Stopped; }

    /// The match and the question of the set-up, whose callbacks the tests call.
    [[nodiscard]] const support::Sending& match() const { return bus.sending(1); }
    [[nodiscard]] const support::Sending& question() const { return bus.sending(2); }

    void expect(OwnerState after, bool woken, const Lines& lines = {}) {
        EXPECT_EQ(state(), after);
        EXPECT_EQ(client->woken(), woken);
        EXPECT_EQ(log.take(), lines);
        EXPECT_EQ((*client)->steps, Journal{}) << "a callback called the derived block";
        EXPECT_EQ(bus.take_journal(), Journal{});
    }
};

TEST_P(DBusClientInEveryStateTest, TakesAnInstalledMatch) {
    EXPECT_EQ(match().install(messages.reply("")), 0);
    expect(OwnerState::MatchAdded, true);
}

TEST_P(DBusClientInEveryStateTest, TakesARefusedMatch) {
    EXPECT_EQ(match().install(messages.error("com.example.Error", "no")), 0);
    EXPECT_EQ(bus.take_journal(), (Journal{"release #1 match"}));
    expect(OwnerState::Idle, true, {"1 Error when adding match for NameOwnerChanged: no"});
}

TEST_P(DBusClientInEveryStateTest, TakesAnOwnerAsTheAnswer) {
    EXPECT_EQ(question().deliver(messages.reply("s", ":1.5")), 1);
    expect(OwnerState::OwnerAppeared, true);
}

TEST_P(DBusClientInEveryStateTest, TakesAnEmptyAnswer) {
    EXPECT_EQ(question().deliver(messages.reply("s", "")), 1);
    expect(OwnerState::NoOwner, true);
}

TEST_P(DBusClientInEveryStateTest, TakesTheAnswerThatThereIsNoOwner) {
    EXPECT_EQ(
        question().deliver(messages.error("org.freedesktop.DBus.Error.NameHasNoOwner", nullptr)),
        0);
    expect(OwnerState::NoOwner, true);
}

TEST_P(DBusClientInEveryStateTest, TakesARefusedQuestion) {
    EXPECT_EQ(question().deliver(messages.error("com.example.Error", "no")), 1);
    expect(OwnerState::MatchAdded, true, {"1 Error when retrieving NameOwner: no"});
}

TEST_P(DBusClientInEveryStateTest, TakesARefusedQuestionWithoutAText) {
    EXPECT_EQ(question().deliver(messages.error_with_body("com.example.Error", "u", 4U)), -ENXIO);
    expect(OwnerState::MatchAdded, true, {"1 Error when retrieving NameOwner: unknown"});
}

TEST_P(DBusClientInEveryStateTest, IsNotWokenByAnUnreadableAnswer) {
    EXPECT_EQ(question().deliver(messages.reply("")), -ENXIO);
    expect(OwnerState::MatchAdded, false,
           {"2 check_name_owner_callback failed to parse message: No such device or address"});
}

TEST_P(DBusClientInEveryStateTest, HearsThatItsServiceHasAnOwner) {
    EXPECT_EQ(match().deliver(owner_change(followed_name, ":1.7")), 0);
    expect(OwnerState::OwnerAppeared, true);
}

TEST_P(DBusClientInEveryStateTest, HearsThatItsServiceHasNoOwner) {
    EXPECT_EQ(match().deliver(owner_change(followed_name, "")), 0);
    expect(OwnerState::NoOwner, true);
}

TEST_P(DBusClientInEveryStateTest, IsWokenByTheOwnersOfOtherNamesUnlessStopped) {
    EXPECT_EQ(match().deliver(owner_change("com.example.Other", ":1.7")), 0);
    expect(before(), !stopped());
}

TEST_P(DBusClientInEveryStateTest, RefusesAnErrorWhereASignalShouldBe) {
    EXPECT_EQ(match().deliver(messages.error("com.example.Error", "no")), -1);
    expect(before(), false, {"1 Error when handling NameOwnerChanged: no"});
    EXPECT_EQ(match().deliver(messages.error("com.example.Error", nullptr)), -1);
    expect(before(), false, {"1 Error when handling NameOwnerChanged: unknown"});
}

TEST_P(DBusClientInEveryStateTest, RefusesAnUnreadableSignal) {
    EXPECT_EQ(match().deliver(messages.signal("/a", "org.freedesktop.DBus", "NameOwnerChanged",
                                              "ssu", followed_name, "", 5U)),
              -ENXIO);
    expect(before(), false,
           {"2 NameOwnerChanged failed to parse message: No such device or address"});
}

TEST_P(DBusClientInEveryStateTest, IsWokenUnlessStopped) {
    (*client)->wake();
    expect(before(), !stopped());
}

TEST_P(DBusClientInEveryStateTest, IsStoppedWithoutAWakeUp) {
    (*client)->stop();
    EXPECT_EQ(state(), OwnerState::Stopped);
    EXPECT_FALSE(client->woken());
    EXPECT_EQ(bus.take_journal(), (Journal{"release #1 match", "release #2 GetNameOwner"}));
}

TEST_P(DBusClientInEveryStateTest, TakesOneStepInARun) {
    struct Step {
        OwnerState after;
        Journal sent;
        Journal told;
    };
    const auto step = [this]() -> Step {
        switch (before()) {
            case OwnerState::Idle:
                return {OwnerState::AddingMatch, {match_sent}, {}};
            case OwnerState::MatchAdded:
                return {OwnerState::QueryingOwner, {"release #2 GetNameOwner", question_sent}, {}};
            case OwnerState::OwnerAppeared:
                return {OwnerState::Running, {}, {"appeared in state 5", "work in state 6"}};
            case OwnerState::Running:
                return {OwnerState::Running, {}, {"work in state 6"}};
            default:
                return {before(), {}, {}};
        }
    }();
    EXPECT_TRUE((*client)->run());
    EXPECT_EQ(state(), step.after);
    EXPECT_EQ(bus.take_journal(), step.sent);
    EXPECT_EQ((*client)->steps, step.told);
    EXPECT_FALSE(client->woken());
}

std::string state_name(const testing::TestParamInfo<int>& info) {
    const char* const names[] = {"Idle",    "AddingMatch",   "MatchAdded", "QueryingOwner",
                                 "NoOwner", "OwnerAppeared", "Running",    "Stopped"};
    return info.param < first_unknown_state ? names[info.param]
                                            : "Unknown" + std::to_string(info.param);
}

INSTANTIATE_TEST_SUITE_P(States, DBusClientInEveryStateTest,
                         testing::Range(0, first_unknown_state + 2), state_name);

}  // namespace
