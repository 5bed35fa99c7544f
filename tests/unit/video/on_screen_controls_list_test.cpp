#include <cerrno>

#include "tests/unit/video/on_screen_controls_fixture.hpp"

namespace {

using namespace controls_test;
using support::MessageFunction;

TEST_F(OnScreenControlsTest, TakesOnePairForEachLanguageOfEachIdInPlaceOfTheEarlierList) {
    list(false);
    listed() = {{"WDR5", "sv"}};
    answer_list(4U, "WDR1", 2U, "en-us", "sv", "Zoom", 0U, "", 1U, "", "WDR1", 1U, "sv");
    EXPECT_EQ(listed(), (Features{{"WDR1", "en-us"}, {"WDR1", "sv"}, {"", ""}, {"WDR1", "sv"}}));
    answer_list(0U);
    EXPECT_EQ(listed(), Features{});
}

TEST_F(OnScreenControlsTest, ReadsNothingBehindTheListAndNoOtherBody) {
    list(false);
    EXPECT_EQ(deliver(bus.last(), messages.reply("a(sas)i", 1U, "WDR5", 1U, "sv", 5)), wake_up);
    for (const auto& reply :
         {messages.reply(""), messages.reply("as", 1U, "WDR0"), messages.reply("a(ss)", 0U)})
        EXPECT_EQ(deliver(bus.last(), reply),
                  (Journal{"2 Failed to enter array: No such device or address", "returns -6"}));
    EXPECT_EQ(listed(), (Features{{"WDR5", "sv"}}));
}

/// A step of reading a list that fails: the result made up for it, after the steps that do not.
struct FailingStep : support::NamedCase {
    MessageFunction function;
    std::size_t successes;  ///< of the same function before it
    std::string line;
};

class FailingListTest : public OnScreenControlsTest,
                        public testing::WithParamInterface<FailingStep> {};

TEST_P(FailingListTest, IsDiscardedWithoutAWakeUp) {
    list(false);
    listed() = {{"WDR7", "en-us"}};
    std::vector<std::optional<int>> results(GetParam().successes);
    results.emplace_back(-EPERM);
    bus.make_up(GetParam().function, results);
    EXPECT_EQ(
        deliver(bus.last(), messages.reply("a(sas)", 2U, "WDR1", 1U, "en-us", "WDR2", 1U, "sv")),
        (Journal{"2 Failed to " + GetParam().line + ": Operation not permitted", "returns -1"}));
    EXPECT_EQ(listed(), (Features{{"WDR7", "en-us"}}));
    EXPECT_EQ(state(), ControlsState::ListingFeatures);
}

constexpr auto enter = MessageFunction::enter_container;
constexpr auto read = MessageFunction::read_basic;
constexpr auto leave = MessageFunction::exit_container;

const FailingStep failing_steps[] = {
    {{"Array"}, enter, 0, "enter array"},
    {{"Struct"}, enter, 1, "enter struct"},
    {{"Id"}, read, 0, "read string"},
    {{"Languages"}, enter, 2, "enter sub-array"},
    {{"Language"}, read, 1, "read sub-string"},
    {{"NextLanguage"}, read, 2, "read sub-string"},
    {{"EndOfLanguages"}, leave, 0, "exit sub-array"},
    {{"EndOfStruct"}, leave, 1, "exit struct"},
    {{"NextStruct"}, enter, 3, "enter struct"},
    {{"NextId"}, read, 3, "read string"},
    {{"NextLanguages"}, enter, 4, "enter sub-array"},
    {{"EndOfNextLanguages"}, leave, 2, "exit sub-array"},
    {{"EndOfNextStruct"}, leave, 3, "exit struct"},
    {{"NoFurtherStruct"}, enter, 5, "enter struct"},
    {{"EndOfArray"}, leave, 4, "exit container"},
};

INSTANTIATE_TEST_SUITE_P(Steps, FailingListTest, testing::ValuesIn(failing_steps),
                         support::case_name<FailingStep>);

TEST_F(OnScreenControlsTest, TakesAResultOfZeroForAStepThatWasDone) {
    // The array and the languages; the id; the ends of the languages, of the struct, of the array.
    using Results = std::vector<int>;
    for (const auto& [function, results] :
         {std::pair{enter, Results{0, 1, 0}}, {read, Results{0}}, {leave, Results{0, 0, 0}}}) {
        list(false);
        bus.change_results(function, results);
        answer_list(1U, "WDR1", 2U, "en-us", "sv");
        EXPECT_EQ(listed(), (Features{{"WDR1", "en-us"}, {"WDR1", "sv"}}));
    }
}

const Feature mine{"WDR0", "en-us"};
const Feature mine_in_swedish{"WDR0", "sv"};
const Feature mine_in_none{"WDR0", ""};
const Feature other{"WDR1", "en-us"};
const Feature untouched{"earlier", "sv"};

/// A list, the outcome of the walk through it, and the results of sending the removals.
struct WalkCase : support::NamedCase {
    Features list;
    Journal effects;
    ControlsState after;
    Feature pending = untouched;
    std::vector<int> results = {};
};

class ListWalkTest : public OnScreenControlsTest, public testing::WithParamInterface<WalkCase> {};

TEST_P(ListWalkTest, RemovesWhatBearsItsName) {
    const WalkCase& walk = GetParam();
    make(false);
    listed() = walk.list;
    pending() = untouched;
    state() = ControlsState::FeaturesListed;
    bus.answer_next(walk.results);
    EXPECT_EQ(run(), walk.effects);
    EXPECT_EQ(state(), walk.after);
    EXPECT_EQ(pending(), walk.pending);
    EXPECT_EQ(listed(), walk.list);
}

constexpr auto still_listed = ControlsState::FeaturesListed;
constexpr auto update_pending = ControlsState::UpdatePending;
constexpr auto synchronized = ControlsState::Synchronized;

const Features nearly_mine{{"WDR", "en-us"}, {"WDR00", "en-us"}, {"wdr0", "en-us"}, {"", "en-us"}};
const Features two_languages{mine, other, mine_in_swedish, other};
const Features mine_alone{mine, mine_in_swedish};
const std::string remove = removal("WDR0");
const std::string remove_swedish = removal("WDR0", "sv");
const std::string not_sent = "1 Failed to call method RemoveFeatures: Operation not permitted";

const WalkCase walks[] = {
    {{"Nothing"}, {}, {}, still_listed},
    {{"OthersOnly"}, {other, other}, {}, synchronized},
    {{"NamesThatAreNearlyMine"}, nearly_mine, {}, synchronized},
    {{"Mine"}, {mine}, {remove}, update_pending, mine},
    {{"WithoutALanguage"}, {mine_in_none}, {removal("WDR0", "")}, update_pending, mine_in_none},
    {{"MineThenAnother"}, {mine, other}, {remove}, update_pending, mine},
    {{"AnotherThenMine"}, {other, mine}, {remove}, update_pending, mine},
    {{"TwoLanguages"}, two_languages, {remove, remove_swedish}, update_pending, mine_in_swedish},
    {{"NotSent"}, {mine}, {remove, not_sent}, still_listed, untouched, {-EPERM}},
    {{"NotSentThenAnother"}, {mine, other}, {remove, not_sent}, still_listed, untouched, {-EPERM}},
    {{"AnotherThenNotSent"}, {other, mine}, {remove, not_sent}, synchronized, untouched, {-EPERM}},
    {{"SecondNotSent"},
     mine_alone,
     {remove, remove_swedish, not_sent},
     update_pending,
     mine,
     {1, -EPERM}},
    {{"FirstNotSent"},
     mine_alone,
     {remove, not_sent, remove_swedish},
     update_pending,
     mine_in_swedish,
     {-EPERM, 0}},
};

INSTANTIATE_TEST_SUITE_P(Lists, ListWalkTest, testing::ValuesIn(walks),
                         support::case_name<WalkCase>);

class RemovalTest : public OnScreenControlsTest {
  protected:
    /// Two removals are under way, sendings 4 and 5.
    void SetUp() override {
        list(false);
        answer_list(1U, "WDR0", 2U, "en-us", "sv");
        EXPECT_EQ(run(), (Journal{"release #3 ListAddedFeatures", removal("WDR0"),
                                  removal("WDR0", "sv")}));
        EXPECT_EQ(run(), Journal{}) << "the requests are under way";
    }
    Journal answer(std::size_t sending) {
        return deliver(bus.sending(sending), messages.reply(""));
    }
};

TEST_F(RemovalTest, GivesUpItsFirstCallWithTheLastAnswer) {
    for (const std::size_t call : {4, 5})
        expect_handed_over(bus.sending(call), LayoutProbe::call_slot_field(block()), &block());
    EXPECT_EQ(answer(4), wake_up);
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(answer(5), (Journal{"release #4 RemoveFeatures", fired}));
    EXPECT_TRUE(call_pending());
}

TEST_F(RemovalTest, TakesItsAnswersInAnyOrder) {
    EXPECT_EQ(answer(5), wake_up);
    EXPECT_EQ(answer(4), (Journal{"release #4 RemoveFeatures", fired}));
}

TEST_F(RemovalTest, ForgetsOnlyTheFirstOfWhatIsEqualToTheRequestUnderWay) {
    added() = {other, mine_in_swedish, mine, mine_in_swedish};
    EXPECT_EQ(answer(4), wake_up);
    EXPECT_EQ(added(), (Features{other, mine, mine_in_swedish})) << "the later request counts";
    EXPECT_EQ(pending(), mine_in_swedish);
    EXPECT_EQ(answer(5).back(), fired);
    EXPECT_EQ(added(), (Features{other, mine}));
    EXPECT_EQ(answer(5), wake_up);
    EXPECT_EQ(added(), (Features{other, mine})) << "nothing equal is left";
}

TEST_F(RemovalTest, WalksTheListAgainForEverWhenItsRequestsAreRefused) {
    const auto refused = messages.error("a.Error", "no");
    const std::string line = "1 Failed to call method RemoveFeatures: no";
    for (std::size_t first = 4; first < 104; first += 2) {
        EXPECT_EQ(deliver(bus.sending(first), refused), (Journal{line, fired}));
        EXPECT_EQ(deliver(bus.sending(first + 1), refused),
                  (Journal{bus.sending(first).release_text, line, fired}));
        EXPECT_EQ(run(), (Journal{bus.sending(first + 1).release_text, removal("WDR0"),
                                  removal("WDR0", "sv")}));
    }
}

}  // namespace
