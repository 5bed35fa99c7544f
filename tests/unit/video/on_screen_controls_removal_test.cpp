#include <cerrno>
#include <ostream>

#include "tests/unit/video/on_screen_controls_fixture.hpp"

namespace {

using namespace controls_test;

/// What is listed, how sending each request ends, and what the walk through the list comes to.
struct WalkCase {
    const char* name;
    Features list;
    std::vector<int> results;
    Features requested;
    ControlsState after;
    Feature pending;
};

void PrintTo(const WalkCase& walk, std::ostream* out) {
    *out << walk.name;
}

class ListWalkTest : public OnScreenControlsTest, public testing::WithParamInterface<WalkCase> {};

TEST_P(ListWalkTest, RemovesWhatBearsItsName) {
    const WalkCase& walk = GetParam();
    make(false);
    listed() = walk.list;
    pending() = {"earlier", "sv"};
    state() = ControlsState::FeaturesListed;
    Journal requests;
    Lines lines;
    for (std::size_t request = 0; request < walk.requested.size(); ++request) {
        requests.push_back(removal(walk.requested[request].first, walk.requested[request].second));
        if (walk.results[request] < 0)
            lines.emplace_back("1 Failed to call method RemoveFeatures: Operation not permitted");
    }
    if (walk.results.size() == 2)
        bus.answer_next({walk.results[0], walk.results[1]});
    else if (walk.results.size() == 1)
        bus.answer_next({walk.results[0]});
    EXPECT_EQ(run(), requests);
    EXPECT_EQ(log.take(), lines);
    EXPECT_EQ(state(), walk.after);
    EXPECT_EQ(pending(), walk.pending);
    EXPECT_EQ(listed(), walk.list);
    EXPECT_FALSE(controls->woken());
    (*controls)->stop();
    (void)bus.take_journal();
}

const Feature mine{"WDR0", "en-us"};
const Feature mine_in_swedish{"WDR0", "sv"};
const Feature other{"WDR1", "en-us"};
const Feature untouched{"earlier", "sv"};
constexpr int lost = -EPERM;

const WalkCase walks[] = {
    {"Nothing", {}, {}, {}, ControlsState::FeaturesListed, untouched},
    {"OthersOnly", {other, other}, {}, {}, ControlsState::Synchronized, untouched},
    {"NamesThatAreNearlyMine",
     {{"WDR", "en-us"}, {"WDR00", "en-us"}, {"wdr0", "en-us"}, {"", "en-us"}},
     {},
     {},
     ControlsState::Synchronized,
     untouched},
    {"Mine", {mine}, {1}, {mine}, ControlsState::UpdatePending, mine},
    {"MineWithoutALanguage",
     {{"WDR0", ""}},
     {1},
     {{"WDR0", ""}},
     ControlsState::UpdatePending,
     {"WDR0", ""}},
    {"MineThenAnother", {mine, other}, {1}, {mine}, ControlsState::UpdatePending, mine},
    {"AnotherThenMine", {other, mine}, {1}, {mine}, ControlsState::UpdatePending, mine},
    {"TwoLanguages",
     {mine, other, mine_in_swedish, other},
     {1, 1},
     {mine, mine_in_swedish},
     ControlsState::UpdatePending,
     mine_in_swedish},
    {"NotSent", {mine}, {lost}, {mine}, ControlsState::FeaturesListed, untouched},
    {"NotSentThenAnother", {mine, other}, {lost}, {mine}, ControlsState::FeaturesListed, untouched},
    {"AnotherThenNotSent", {other, mine}, {lost}, {mine}, ControlsState::Synchronized, untouched},
    {"SecondNotSent",
     {mine, mine_in_swedish},
     {1, lost},
     {mine, mine_in_swedish},
     ControlsState::UpdatePending,
     mine},
    {"FirstNotSent",
     {mine, mine_in_swedish},
     {lost, 0},
     {mine, mine_in_swedish},
     ControlsState::UpdatePending,
     mine_in_swedish},
};

INSTANTIATE_TEST_SUITE_P(Lists, ListWalkTest, testing::ValuesIn(walks),
                         [](const auto& walk) { return std::string(walk.param.name); });

class RemovalTest : public OnScreenControlsTest {
  protected:
    /// Two removals are under way, sendings 4 and 5.
    void remove_two() {
        make(false);
        list();
        answer_list(1U, "WDR0", 2U, "en-us", "sv");
        EXPECT_EQ(run(), (Journal{"release #3 ListAddedFeatures", removal("WDR0"),
                                  removal("WDR0", "sv")}));
    }
};

TEST_F(RemovalTest, SendsThemInTheOneFieldWithTheSameCallback) {
    remove_two();
    for (const std::size_t call : {4, 5}) {
        EXPECT_EQ(bus.sending(call).bus, messages.bus());
        EXPECT_EQ(bus.sending(call).slot_field, LayoutProbe::call_slot_field(**controls));
        EXPECT_EQ(bus.sending(call).userdata, &**controls);
    }
    EXPECT_EQ(bus.sending(4).callback, bus.sending(5).callback);
    EXPECT_EQ(run(), Journal{}) << "the requests are under way";
}

TEST_F(RemovalTest, IsSynchronizedByEachAnswerAndGivesUpTheFirstCallWithTheLast) {
    remove_two();
    deliver(bus.sending(4), messages.reply(""));
    EXPECT_EQ(state(), ControlsState::Synchronized);
    EXPECT_TRUE(controls->woken());
    EXPECT_EQ(bus.take_journal(), Journal{});
    EXPECT_EQ(run(), Journal{});
    deliver(bus.sending(5), messages.reply(""));
    EXPECT_EQ(state(), ControlsState::Synchronized);
    EXPECT_TRUE(controls->woken());
    EXPECT_EQ(bus.take_journal(), (Journal{"release #4 RemoveFeatures"}));
    EXPECT_TRUE(call_held());
}

TEST_F(RemovalTest, HearsItsAnswersInAnyOrder) {
    remove_two();
    deliver(bus.sending(5), messages.reply(""));
    EXPECT_EQ(bus.take_journal(), Journal{});
    deliver(bus.sending(4), messages.reply(""));
    EXPECT_EQ(bus.take_journal(), (Journal{"release #4 RemoveFeatures"}));
}

TEST_F(RemovalTest, ForgetsOnlyTheFirstOfWhatIsEqualToTheRequestUnderWay) {
    remove_two();
    added() = {other, mine_in_swedish, mine, mine_in_swedish};
    deliver(bus.sending(4), messages.reply(""));
    EXPECT_EQ(added(), (Features{other, mine, mine_in_swedish})) << "the later request counts";
    EXPECT_EQ(pending(), mine_in_swedish);
    deliver(bus.sending(5), messages.reply(""));
    EXPECT_EQ(added(), (Features{other, mine}));
    EXPECT_EQ(bus.take_journal().size(), 1U);
    added().clear();
}

TEST_F(RemovalTest, ForgetsNothingWhenNothingEqualHasBeenAdded) {
    remove_two();
    added() = {other, mine};
    deliver(bus.sending(5), messages.reply(""));
    EXPECT_EQ(added(), (Features{other, mine}));
    EXPECT_EQ(state(), ControlsState::Synchronized);
}

TEST_F(RemovalTest, WalksTheListAgainForEverWhenItsRequestsAreRefused) {
    remove_two();
    std::size_t first = 4;
    for (int again = 0; again < 50; ++again, first += 2) {
        const std::string older = bus.sending(first).release_text;
        const std::string newer = bus.sending(first + 1).release_text;
        deliver(bus.sending(first), messages.error("com.example.Error", "no"));
        deliver(bus.sending(first + 1), messages.error("com.example.Error", "no"));
        EXPECT_EQ(bus.take_journal(), (Journal{older}));
        EXPECT_EQ(log.take(), Lines(2, "1 Failed to call method RemoveFeatures: no"));
        EXPECT_TRUE(controls->woken());
        EXPECT_EQ(run(), (Journal{newer, removal("WDR0"), removal("WDR0", "sv")}));
    }
}

TEST_F(RemovalTest, NeverRemovesTheButtonsThatItsOwnChannelPublishes) {
    make(false);
    list();
    answer_list(1U, "WDR1", 1U, "en-us");
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(state(), ControlsState::Synchronized);
}

}  // namespace
