#include <cerrno>

#include "tests/unit/video/on_screen_controls_fixture.hpp"

namespace {

using namespace controls_test;

constexpr int first_unknown_state = 11;

/// Puts one event before a block in every state: what follows must not depend on the state, unless
/// the test says so.
class OnScreenControlsInEveryStateTest : public OnScreenControlsTest,
                                         public testing::WithParamInterface<int> {
  protected:
    /// One call of each kind is under way.
    void SetUp() override {
        make(false);
        for (const ControlsState step :
             {ControlsState::Idle, ControlsState::MatchAdded, ControlsState::OwnerAppeared}) {
            state() = step;
            EXPECT_EQ(run().size(), 1U);
        }
        state() = ControlsState::FeaturesListed;
        listed() = {{"WDR0", "en-us"}};
        EXPECT_EQ(run(), (Journal{removal("WDR0")}));
        state() = ControlsState::FeaturesListed;
        LayoutProbe::wdr(**controls) = true;
        EXPECT_EQ(run(), (Journal{first_addition}));
        state() = before();
    }

    void TearDown() override {
        added().clear();
        (*controls)->stop();
        (void)bus.take_journal();
    }

    [[nodiscard]] static ControlsState before() { return static_cast<ControlsState>(GetParam()); }
    [[nodiscard]] static bool stopped() { return before() == ControlsState::Stopped; }

    // The match and the calls of the set-up, whose callbacks the tests call.
    [[nodiscard]] const support::Sending& match() const { return bus.sending(1); }
    [[nodiscard]] const support::Sending& question() const { return bus.sending(2); }
    [[nodiscard]] const support::Sending& listing() const { return bus.sending(3); }
    [[nodiscard]] const support::Sending& removing() const { return bus.sending(4); }
    [[nodiscard]] const support::Sending& adding() const { return bus.sending(5); }

    void expect(ControlsState after, bool woken, const Lines& lines = {}) {
        EXPECT_EQ(state(), after);
        EXPECT_EQ(controls->woken(), woken);
        EXPECT_EQ(log.take(), lines);
        EXPECT_EQ(bus.take_journal(), Journal{}) << "a callback sent or released something";
    }
    /// An error reply to a call of the service, with a text and without one.
    void expect_error(const support::Sending& call, const std::string& method,
                      ControlsState after) {
        const std::string prefix = "1 Failed to call method " + method + ": ";
        deliver(call, messages.error("com.example.Error", "no"));
        expect(after, true, {prefix + "no"});
        state() = before();
        deliver(call, messages.error_with_body("com.example.Error", "u", 4U));
        expect(after, true, {prefix + "unknown"});
    }
};

TEST_P(OnScreenControlsInEveryStateTest, TakesAnInstalledMatch) {
    EXPECT_EQ(match().install(messages.reply("")), 0);
    expect(ControlsState::MatchAdded, true);
}

TEST_P(OnScreenControlsInEveryStateTest, TakesARefusedMatch) {
    const std::string prefix = "1 Error when adding match for NameOwnerChanged: ";
    EXPECT_EQ(match().install(messages.error("com.example.Error", "no")), 0);
    EXPECT_EQ(bus.take_journal(), (Journal{"release #1 match"}));
    expect(ControlsState::Idle, true, {prefix + "no"});
    state() = before();
    EXPECT_EQ(match().install(messages.error("com.example.Error", nullptr)), 0);
    expect(ControlsState::Idle, true, {prefix + "unknown"});
}

TEST_P(OnScreenControlsInEveryStateTest, TakesAnOwnerAsTheAnswer) {
    deliver(question(), messages.reply("s", ":1.5"), 1);
    expect(ControlsState::OwnerAppeared, true);
}

TEST_P(OnScreenControlsInEveryStateTest, TakesAnEmptyAnswer) {
    deliver(question(), messages.reply("s", ""), 1);
    expect(ControlsState::NoOwner, true);
}

TEST_P(OnScreenControlsInEveryStateTest, TakesTheAnswerThatThereIsNoOwner) {
    deliver(question(), messages.error("org.freedesktop.DBus.Error.NameHasNoOwner", nullptr));
    expect(ControlsState::NoOwner, true);
}

TEST_P(OnScreenControlsInEveryStateTest, TakesARefusedQuestion) {
    deliver(question(), messages.error("com.example.Error", "no"), 1);
    expect(ControlsState::MatchAdded, true, {"1 Error when retrieving NameOwner: no"});
    state() = before();
    deliver(question(), messages.error_with_body("com.example.Error", "u", 4U), -ENXIO);
    expect(ControlsState::MatchAdded, true, {"1 Error when retrieving NameOwner: unknown"});
}

TEST_P(OnScreenControlsInEveryStateTest, IsNotWokenByAnUnreadableAnswer) {
    deliver(question(), messages.reply(""), -ENXIO);
    expect(ControlsState::MatchAdded, false,
           {"2 check_name_owner_callback failed to parse message: No such device or address"});
}

TEST_P(OnScreenControlsInEveryStateTest, HearsThatItsServiceHasAnOwner) {
    change_owner(service_name, ":1.7");
    expect(ControlsState::OwnerAppeared, true);
}

TEST_P(OnScreenControlsInEveryStateTest, HearsThatItsServiceHasNoOwner) {
    change_owner(service_name, "");
    expect(ControlsState::NoOwner, true);
}

TEST_P(OnScreenControlsInEveryStateTest, IsWokenByTheOwnersOfOtherNamesUnlessStopped) {
    change_owner("com.example.Other", ":1.7");
    expect(before(), !stopped());
}

TEST_P(OnScreenControlsInEveryStateTest, RefusesAnErrorWhereASignalShouldBe) {
    deliver(match(), messages.error("com.example.Error", "no"), -1);
    expect(before(), false, {"1 Error when handling NameOwnerChanged: no"});
    deliver(match(), messages.error("com.example.Error", nullptr), -1);
    expect(before(), false, {"1 Error when handling NameOwnerChanged: unknown"});
}

TEST_P(OnScreenControlsInEveryStateTest, RefusesAnUnreadableSignal) {
    deliver(match(),
            messages.signal("/a", "org.freedesktop.DBus", "NameOwnerChanged", "ssu", service_name,
                            "", 5U),
            -ENXIO);
    expect(before(), false,
           {"2 NameOwnerChanged failed to parse message: No such device or address"});
}

TEST_P(OnScreenControlsInEveryStateTest, TakesAList) {
    deliver(listing(), messages.reply("a(sas)", 1U, "WDR5", 1U, "sv"));
    expect(ControlsState::FeaturesListed, true);
    EXPECT_EQ(listed(), (Features{{"WDR5", "sv"}}));
}

TEST_P(OnScreenControlsInEveryStateTest, TakesARefusedList) {
    expect_error(listing(), "ListAddedFeatures", ControlsState::OwnerAppeared);
    EXPECT_EQ(listed(), (Features{{"WDR0", "en-us"}}));
}

TEST_P(OnScreenControlsInEveryStateTest, StaysWhereItIsWithAnUnreadableList) {
    deliver(listing(), messages.reply("s", "WDR5"), -ENXIO);
    expect(before(), false, {"2 Failed to enter array: No such device or address"});
    EXPECT_EQ(listed(), (Features{{"WDR0", "en-us"}}));
}

TEST_P(OnScreenControlsInEveryStateTest, TakesADoneAddition) {
    deliver(adding(), messages.reply(""));
    expect(ControlsState::Synchronized, true);
    EXPECT_EQ(added(), (Features{{"WDR1", "en-us"}}));
}

TEST_P(OnScreenControlsInEveryStateTest, TakesARefusedAddition) {
    expect_error(adding(), "AddFeatures", ControlsState::FeaturesListed);
    EXPECT_EQ(added(), Features{});
}

TEST_P(OnScreenControlsInEveryStateTest, TakesADoneRemoval) {
    added() = {{"WDR0", "sv"}, {"WDR1", "en-us"}};
    deliver(removing(), messages.reply(""));
    expect(ControlsState::Synchronized, true);
    EXPECT_EQ(added(), (Features{{"WDR0", "sv"}}));
}

TEST_P(OnScreenControlsInEveryStateTest, TakesARefusedRemoval) {
    added() = {{"WDR1", "en-us"}};
    expect_error(removing(), "RemoveFeatures", ControlsState::FeaturesListed);
    EXPECT_EQ(added(), (Features{{"WDR1", "en-us"}}));
}

TEST_P(OnScreenControlsInEveryStateTest, IsStoppedWithoutAWakeUp) {
    (*controls)->stop();
    EXPECT_EQ(state(), ControlsState::Stopped);
    EXPECT_FALSE(controls->woken());
    EXPECT_EQ(bus.take_journal(),
              (Journal{"release #1 match", "release #5 AddFeatures", "release #2 GetNameOwner",
                       "release #3 ListAddedFeatures", "release #4 RemoveFeatures"}));
}

TEST_P(OnScreenControlsInEveryStateTest, TakesOneStepInARun) {
    struct Step {
        ControlsState after;
        Journal sent;
    };
    const auto step = [this]() -> Step {
        switch (before()) {
            case ControlsState::Idle:
                return {ControlsState::AddingMatch, {owner_match}};
            case ControlsState::MatchAdded:
                return {ControlsState::QueryingOwner, {owner_query}};
            case ControlsState::OwnerAppeared:
                return {ControlsState::ListingFeatures, {list_query}};
            case ControlsState::FeaturesListed:
                return {ControlsState::UpdatePending, {first_addition}};
            default:
                return {before(), {}};
        }
    }();
    EXPECT_EQ(run(), step.sent);
    EXPECT_EQ(state(), step.after);
    EXPECT_FALSE(controls->woken());
}

std::string state_name(const testing::TestParamInfo<int>& info) {
    const char* const names[] = {
        "Idle",          "AddingMatch",   "MatchAdded",      "QueryingOwner",
        "NoOwner",       "OwnerAppeared", "ListingFeatures", "FeaturesListed",
        "UpdatePending", "Synchronized",  "Stopped"};
    return info.param < first_unknown_state ? names[info.param]
                                            : "Unknown" + std::to_string(info.param);
}

INSTANTIATE_TEST_SUITE_P(States, OnScreenControlsInEveryStateTest,
                         testing::Range(0, first_unknown_state + 2), state_name);

}  // namespace
