#include "tests/unit/temperature/temperature_monitor_fixture.hpp"

namespace {

using namespace monitor_test;

constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();

/// The effects of a run that logs the unknown id 99 before the verdict changes.
Journal noted_and(const Journal& change) {
    return {unexpected("99"), change[0], change[1]};
}

/// The signals before each of several runs, and the effects of each run.
struct SignalsCase : NamedCase {
    std::vector<std::vector<std::int32_t>> signals;
    std::vector<Journal> effects;
    SignalIds ids = usual_ids;  ///< the controller's ids of the limits
};

class SignalsTest : public TemperatureMonitorTest,
                    public testing::WithParamInterface<SignalsCase> {};

TEST_P(SignalsTest, AreJudgedInTheNextRun) {
    settle(GetParam().ids);
    std::vector<Journal> effects;
    for (const auto& signals : GetParam().signals) {
        for (const std::int32_t id : signals)
            cross(id);
        effects.push_back(run());
    }
    EXPECT_EQ(effects, GetParam().effects);
}

const SignalsCase signals_cases[] = {
    {"LowOffAndLowOn", {{low_off}, {low_on}}, {turned_off, turned_on}},
    {"LowOffAndHighOn", {{low_off}, {high_on}}, {turned_off, turned_on}},
    {"HighOffAndLowOn", {{high_off}, {low_on}}, {turned_off, turned_on}},
    {"HighOffAndHighOn", {{high_off}, {high_on}}, {turned_off, turned_on}},
    {"OnlyOnce", {{low_off}, {}}, {turned_off, {}}},
    {"WithoutAChange", {{low_on, high_on}}, {{}}},
    {"OfWhichTheLastCounts",
     {{low_on, high_off}, {high_on, low_off, low_on}, {low_off, low_on}},
     {turned_off, turned_on, {}}},
    {"Unknown",
     {{3, -1, 0, 14}, {}},
     {{unexpected("3"), unexpected("-1"), unexpected("0"), unexpected("14")}, {}}},
    {"AfterAndBeforeAnUnknownOne",
     {{low_off, 99}, {99, high_on}},
     {noted_and(turned_off), noted_and(turned_on)}},
    {"OffByTheIdOfLowOnAndLowOff", {{7}}, {turned_off}, {7, 11, 7, 13}},
    {"OffByTheIdOfLowOnAndHighOff", {{7}}, {turned_off}, {7, 11, 12, 7}},
    {"OffByTheIdOfHighOnAndLowOff", {{7}}, {turned_off}, {10, 7, 7, 13}},
    {"OffByTheIdOfHighOnAndHighOff", {{7}}, {turned_off}, {10, 7, 12, 7}},
    {"WithIdsOfAnySign",
     {{lowest}, {0}, {highest}, {-1}},
     {turned_off, turned_on, turned_off, turned_on},
     {0, -1, lowest, highest}},
};

INSTANTIATE_TEST_SUITE_P(Signals, SignalsTest, testing::ValuesIn(signals_cases),
                         case_name<SignalsCase>);

TEST_F(TemperatureMonitorTest, ComparesItsVerdictWithWhatThePortHolds) {
    settle();
    output<bool>("temperature_ok_out").value = false;
    EXPECT_EQ(run(), turned_on);
    output<bool>("temperature_ok_out").value = false;
    cross(low_off);
    EXPECT_EQ(run(), Journal{});
    EXPECT_FALSE(verdict());
}

TEST_F(TemperatureMonitorTest, CountsALimitThatIsCrossedAlreadyAsASignal) {
    reach(3);
    for (std::size_t limit = 0; limit < 4; ++limit)
        register_limit(limit, usual_ids, limit == 2);
    EXPECT_EQ(run(), turned_off);
}

TEST_F(TemperatureMonitorTest, JudgesLimitsThatAreCrossedAlreadyInTheOrderOfTheirReplies) {
    make(2000.0);
    install_matches();
    for (std::size_t limit = 0; limit < 4; ++limit)
        register_limit(limit, usual_ids, limit < 2);
    EXPECT_EQ(run(), turned_on);
}

TEST_F(TemperatureMonitorTest, KeepsSignalsThatComeWhileItRegistersForLater) {
    make();
    install_match(owner_match);
    EXPECT_EQ(run(), (Journal{signal_match}));
    cross(low_off);
    EXPECT_EQ(run(), Journal{}) << "the match is not confirmed yet";
    EXPECT_EQ(install(bus.last(), messages.reply("")), wake_up);
    EXPECT_EQ(run(), (Journal{default_registrations[0]}));
    cross(low_on);
    cross(99);
    EXPECT_EQ(run(), Journal{});
    answer_registration(low_on);
    register_limit(1, usual_ids, true);
    register_limit(2);
    EXPECT_EQ(run(), (Journal{default_registrations[3]}));
    cross(98);
    answer_registration(high_off, true);
    // The signals: off, on, unknown, on, unknown, off.
    EXPECT_EQ(run(), (Journal{unexpected("99"), unexpected("98"), turned_off[0], turned_off[1]}));
}

}  // namespace
