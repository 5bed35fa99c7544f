#include <cerrno>
#include <ostream>

#include "tests/unit/video/on_screen_controls_fixture.hpp"

namespace {

using namespace controls_test;
using support::MessageFunction;

TEST_F(OnScreenControlsTest, TakesOnePairForEachLanguageOfEachId) {
    make(false);
    list();
    answer_list(4U, "WDR1", 2U, "en-us", "sv", "Zoom", 0U, "", 1U, "", "WDR1", 1U, "sv");
    EXPECT_EQ(listed(), (Features{{"WDR1", "en-us"}, {"WDR1", "sv"}, {"", ""}, {"WDR1", "sv"}}));
}

TEST_F(OnScreenControlsTest, ReplacesTheEarlierList) {
    make(false);
    list();
    answer_list(1U, "WDR5", 1U, "sv");
    restart_service();
    EXPECT_EQ(run(), (Journal{"release #3 ListAddedFeatures", list_query}));
    answer_list(1U, "WDR6", 1U, "en-us");
    EXPECT_EQ(listed(), (Features{{"WDR6", "en-us"}}));
    restart_service();
    EXPECT_EQ(run(), (Journal{"release #4 ListAddedFeatures", list_query}));
    answer_list(0U);
    EXPECT_EQ(listed(), Features{});
}

TEST_F(OnScreenControlsTest, AsksForARefusedListForEverHoldingOneSlot) {
    make(true);
    list();
    for (int again = 0; again < 50; ++again) {
        answer(messages.error("com.example.Error", "no"));
        EXPECT_EQ(log.take(), (Lines{"1 Failed to call method ListAddedFeatures: no"}));
        EXPECT_TRUE(controls->woken());
        const std::string answered = bus.last().release_text;
        EXPECT_EQ(run(), (Journal{answered, list_query}));
    }
}

TEST_F(OnScreenControlsTest, IgnoresWhatStandsBehindTheList) {
    make(false);
    list();
    answer(messages.reply("a(sas)i", 1U, "WDR5", 1U, "sv", 5));
    EXPECT_EQ(listed(), (Features{{"WDR5", "sv"}}));
}

/// A step of reading a list that fails: the result made up for it, after the steps that do not.
struct FailingStep {
    const char* name;
    MessageFunction function;
    std::size_t successes;  ///< of the same function before it
    std::string line;
};

void PrintTo(const FailingStep& step, std::ostream* out) {
    *out << step.name;
}

class FailingListTest : public OnScreenControlsTest,
                        public testing::WithParamInterface<FailingStep> {};

TEST_P(FailingListTest, DiscardsTheListAndWaits) {
    make(false);
    list();
    listed() = {{"WDR7", "en-us"}};
    std::vector<std::optional<int>> results(GetParam().successes);
    results.emplace_back(-EPERM);
    bus.make_up(GetParam().function, results);
    deliver(bus.last(), messages.reply("a(sas)", 2U, "WDR1", 1U, "en-us", "WDR2", 1U, "sv"),
            -EPERM);
    EXPECT_EQ(log.take(), (Lines{"2 " + GetParam().line + ": Operation not permitted"}));
    EXPECT_EQ(listed(), (Features{{"WDR7", "en-us"}}));
    EXPECT_EQ(state(), ControlsState::ListingFeatures);
    EXPECT_FALSE(controls->woken());
    EXPECT_EQ(run(), Journal{});
    restart_service();
    EXPECT_EQ(run(), (Journal{"release #3 ListAddedFeatures", list_query}));
}

const FailingStep failing_steps[] = {
    {"Array", MessageFunction::enter_container, 0, "Failed to enter array"},
    {"Struct", MessageFunction::enter_container, 1, "Failed to enter struct"},
    {"Id", MessageFunction::read_basic, 0, "Failed to read string"},
    {"Languages", MessageFunction::enter_container, 2, "Failed to enter sub-array"},
    {"Language", MessageFunction::read_basic, 1, "Failed to read sub-string"},
    {"NextLanguage", MessageFunction::read_basic, 2, "Failed to read sub-string"},
    {"EndOfLanguages", MessageFunction::exit_container, 0, "Failed to exit sub-array"},
    {"EndOfStruct", MessageFunction::exit_container, 1, "Failed to exit struct"},
    {"NextStruct", MessageFunction::enter_container, 3, "Failed to enter struct"},
    {"NextId", MessageFunction::read_basic, 3, "Failed to read string"},
    {"NextLanguages", MessageFunction::enter_container, 4, "Failed to enter sub-array"},
    {"EndOfNextLanguages", MessageFunction::exit_container, 2, "Failed to exit sub-array"},
    {"EndOfNextStruct", MessageFunction::exit_container, 3, "Failed to exit struct"},
    {"NoFurtherStruct", MessageFunction::enter_container, 5, "Failed to enter struct"},
    {"EndOfArray", MessageFunction::exit_container, 4, "Failed to exit container"},
};

INSTANTIATE_TEST_SUITE_P(Steps, FailingListTest, testing::ValuesIn(failing_steps),
                         [](const auto& step) { return std::string(step.param.name); });

TEST_F(OnScreenControlsTest, TakesAResultOfZeroForAStepThatWasDone) {
    // The array and the languages; the id; the ends of the languages, of the struct, of the array.
    using Results = std::vector<int>;
    for (const auto& [function, results] :
         {std::pair{MessageFunction::enter_container, Results{0, 1, 0}},
          {MessageFunction::read_basic, Results{0}},
          {MessageFunction::exit_container, Results{0, 0, 0}}}) {
        SCOPED_TRACE(static_cast<int>(function));
        make(false);
        state() = ControlsState::OwnerAppeared;
        EXPECT_EQ(run(), (Journal{list_query}));
        bus.change_results(function, results);
        deliver(bus.last(), messages.reply("a(sas)", 1U, "WDR1", 2U, "en-us", "sv"));
        EXPECT_EQ(listed(), (Features{{"WDR1", "en-us"}, {"WDR1", "sv"}}));
        EXPECT_EQ(state(), ControlsState::FeaturesListed);
        EXPECT_TRUE(controls->woken());
        (*controls)->stop();
        (void)bus.take_journal();
    }
}

TEST_F(OnScreenControlsTest, TakesNoBodyOfAnotherTypeForAList) {
    make(false);
    list();
    for (const auto& reply :
         {messages.reply(""), messages.reply("as", 1U, "WDR0"), messages.reply("a(ss)", 0U)}) {
        EXPECT_EQ(bus.last().deliver(reply), -ENXIO);
        EXPECT_EQ(log.take(), (Lines{"2 Failed to enter array: No such device or address"}));
    }
    EXPECT_EQ(state(), ControlsState::ListingFeatures);
    EXPECT_FALSE(controls->woken());
}

}  // namespace
