#include "common/text/suggestion.hpp"

#include <gtest/gtest.h>

namespace common {
namespace {

TEST(Suggestion, NearestCandidateIsNamed) {
    EXPECT_EQ(did_you_mean("TemperaturReader", {"TemperatureMonitor", "TemperatureReader"}),
              "did you mean 'TemperatureReader'?");
}

TEST(Suggestion, InsertDeleteReplaceAndSwapCostOne) {
    for (const char* typed : {"intervall", "interal", "inteyval", "itnerval"})
        EXPECT_EQ(did_you_mean(typed, {"interval"}), "did you mean 'interval'?") << typed;
    // Of three letters one may be wrong, whichever way.
    for (const char* typed : {"ot", "ou", "ut", "oout", "xut", "uot", "otu"})
        EXPECT_EQ(did_you_mean(typed, {"out"}), "did you mean 'out'?") << typed;
    for (const char* typed : {"o", "xyt", "tuo", "outxx"})
        EXPECT_EQ(did_you_mean(typed, {"out"}), "") << typed;
}

TEST(Suggestion, AThirdOfTheLettersMayDiffer) {
    EXPECT_EQ(did_you_mean("xxcdef", {"abcdef"}), "did you mean 'abcdef'?");
    EXPECT_EQ(did_you_mean("xxxdef", {"abcdef"}), "");
    EXPECT_EQ(did_you_mean("abcdefgh", {"abcdef"}), "did you mean 'abcdef'?");
    EXPECT_EQ(did_you_mean("abcdefghi", {"abcdef"}), "did you mean 'abcdef'?");
    EXPECT_EQ(did_you_mean("abcdefghij", {"abcdef"}), "");
}

TEST(Suggestion, SwapsAcrossTheWholeWordAreFound) {
    EXPECT_EQ(did_you_mean("badcfe", {"abcdef"}), "");  // three of six
    EXPECT_EQ(did_you_mean("badcefghi", {"abcdefghi"}), "did you mean 'abcdefghi'?");
    EXPECT_EQ(did_you_mean("abcdefgih", {"abcdefghi"}), "did you mean 'abcdefghi'?");
}

TEST(Suggestion, FirstOfEquallyNearOnesIsNamed) {
    EXPECT_EQ(did_you_mean("in_x", {"in_1", "in_2", "in_"}), "did you mean 'in_1'?");
    EXPECT_EQ(did_you_mean("in_x", {"in_1", "in_x"}), "did you mean 'in_x'?");
    EXPECT_EQ(did_you_mean("in_x", {"in_x", "in_1"}), "did you mean 'in_x'?");
}

TEST(Suggestion, NothingIsNearNothing) {
    EXPECT_EQ(did_you_mean("out", {}), "");
    EXPECT_EQ(did_you_mean("", {"a"}), "");
    EXPECT_EQ(did_you_mean("a", {""}), "");
    EXPECT_EQ(did_you_mean("quiet", {"double", "tick"}), "");
}

TEST(Suggestion, LongNamesAreNoTypingMistakes) {
    EXPECT_NE(did_you_mean(std::string(255, 'a'), {std::string(256, 'a')}), "");
    EXPECT_EQ(did_you_mean(std::string(256, 'a'), {std::string(257, 'a')}), "");
    EXPECT_EQ(did_you_mean(std::string(1'000'000, 'a'), {std::string(1'000'000, 'a')}), "");
}

TEST(Suggestion, WorkForManyNamesIsLimited) {
    std::vector<std::string> known;
    for (int i = 0; i < 20'000; ++i)
        known.push_back(std::string(250, 'a') + std::to_string(i));
    Suggester suggester;
    std::size_t helped = 0;
    for (const std::string& name : known)
        helped += suggester.did_you_mean(name + "x", known).empty() ? 0U : 1U;
    EXPECT_LT(helped, 100U);
    // Nothing is left, also for a small question.
    EXPECT_EQ(suggester.did_you_mean("ou", {"out"}), "");
    EXPECT_EQ(did_you_mean("ou", {"out"}), "did you mean 'out'?");
}

TEST(Suggestion, OfOrdinaryTextsEveryNameIsHelped) {
    std::vector<std::string> known;
    for (int i = 0; i < 1000; ++i)
        known.push_back("block-" + std::to_string(i));
    Suggester suggester;
    for (int i = 0; i < 20; ++i)
        EXPECT_NE(suggester.did_you_mean("blokc-" + std::to_string(i), known), "") << i;
}

}  // namespace
}  // namespace common
