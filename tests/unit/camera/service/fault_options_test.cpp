#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "camera/service/fault_rules.hpp"

namespace camera {
namespace {

using common::Json;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// What reading a rule gave: the rule, and its mistakes as "KEY: SENTENCE".
struct Read {
    FaultRule rule;
    std::vector<std::string> mistakes;
};

Read read(const std::string& options) {
    Read read;
    read.rule = fault_rule_from(Json::parse(options),
                                [&](const std::string& key, const CommandError& mistake) {
                                    read.mistakes.push_back(key + ": " + mistake.what());
                                });
    return read;
}

TEST(FaultOptions, ReadEveryOption) {
    const Read all = read(R"({"member":"temperature.Get","error":"com.example.Error.Busy",
        "delay":250,"times":3,"probability":0.5,"seed":9})");
    EXPECT_THAT(all.mistakes, IsEmpty());
    EXPECT_EQ(all.rule.service, "temperature");
    EXPECT_EQ(all.rule.member, "Get");
    EXPECT_EQ(all.rule.effect, FaultEffect::error);
    EXPECT_EQ(all.rule.error_name, "com.example.Error.Busy");
    EXPECT_EQ(all.rule.delay, std::chrono::milliseconds(250));
    EXPECT_EQ(all.rule.times, 3U);
    EXPECT_EQ(all.rule.probability, 0.5);
    EXPECT_EQ(all.rule.seed, 9U);
}

TEST(FaultOptions, ReadEachEffectAndTheLargestNumbers) {
    EXPECT_EQ(read(R"({"member":"G","malformed":true})").rule.effect, FaultEffect::malformed);
    EXPECT_EQ(read(R"({"member":"G","silent":true})").rule.effect, FaultEffect::silent);
    EXPECT_EQ(read(R"({"member":"G","drop":true})").rule.effect, FaultEffect::drop);
    const Read late = read(R"({"member":"G","delay":86400000,"times":4294967295})");
    EXPECT_THAT(late.mistakes, IsEmpty());
    EXPECT_EQ(late.rule.effect, FaultEffect::none);
    EXPECT_EQ(late.rule.delay, max_fault_delay);
    EXPECT_EQ(late.rule.times, 4294967295U);
    EXPECT_EQ(late.rule.probability, 1.0);
    EXPECT_EQ(read(R"({"member":"G","drop":true,"probability":1,"seed":0})").mistakes.size(), 0U);
}

TEST(FaultOptions, AFlagThatIsFalseIsNotAsked) {
    const Read none = read(R"({"member":"G","malformed":false,"silent":false,"drop":true})");
    EXPECT_THAT(none.mistakes, IsEmpty());
    EXPECT_EQ(none.rule.effect, FaultEffect::drop);
}

struct Mistake {
    const char* options;
    std::string sentence;
};
void PrintTo(const Mistake& mistake, std::ostream* out) {
    *out << mistake.options;
}

class FaultMistakeTest : public ::testing::TestWithParam<Mistake> {};

TEST_P(FaultMistakeTest, IsReportedWithASentence) {
    EXPECT_THAT(read(GetParam().options).mistakes, ElementsAre(GetParam().sentence));
}

constexpr const char* one_effect =
    "a fault takes only one of 'error', 'malformed', 'silent' and 'drop'";
const std::string odds = ": 'probability' of a fault must be above 0 and at most 1, not ";

INSTANTIATE_TEST_SUITE_P(
    EachKind, FaultMistakeTest,
    ::testing::Values(
        Mistake{R"({"member":5,"drop":true})",
                "member: 'member' of a fault must be a string, not 5"},
        Mistake{R"({"drop":true})",
                ": a fault needs 'member', the name of a method, signal or property"},
        Mistake{R"({"member":"","drop":true})",
                ": a fault needs 'member', the name of a method, signal or property"},
        Mistake{R"({"member":"G"})",
                ": a fault needs one of 'error', 'malformed', 'silent', 'drop' and 'delay'"},
        Mistake{R"({"member":"G","times":3})",
                ": a fault needs one of 'error', 'malformed', 'silent', 'drop' and 'delay'"},
        Mistake{R"({"member":"G","error":true})",
                "error: 'error' of a fault must be a string, not true"},
        Mistake{R"({"member":"G","error":"Busy"})",
                ": 'Busy' is not a valid D-Bus error name, such as com.example.Error.Busy"},
        Mistake{R"({"member":"G","error":""})",
                ": '' is not a valid D-Bus error name, such as com.example.Error.Busy"},
        Mistake{R"({"member":"G","silent":1})",
                "silent: 'silent' of a fault must be true or false, not 1"},
        Mistake{R"({"member":"G","delay":1,"malformed":"yes"})",
                "malformed: 'malformed' of a fault must be true or false, not \"yes\""},
        Mistake{R"({"member":"G","drop":null})",
                "drop: 'drop' of a fault must be true or false, not null"},
        Mistake{R"({"member":"G","delay":0})",
                "delay: 'delay' of a fault must be at least 1, not 0"},
        Mistake{R"({"member":"G","delay":1.5})",
                "delay: 'delay' of a fault must be an integer, not 1.5"},
        Mistake{R"({"member":"G","delay":86400001})",
                "delay: 'delay' of a fault must be at most 86400000 ms (a day), not 86400001"},
        Mistake{R"({"member":"G","delay":18446744073709551615})",
                "delay: 'delay' of a fault must be at most 86400000 ms (a day), not "
                "18446744073709551615"},
        Mistake{R"({"member":"G","drop":true,"times":0})",
                "times: 'times' of a fault must be at least 1, not 0"},
        Mistake{R"({"member":"G","drop":true,"times":-3})",
                "times: 'times' of a fault must be at least 1, not -3"},
        Mistake{R"({"member":"G","drop":true,"times":"two"})",
                "times: 'times' of a fault must be an integer, not \"two\""},
        Mistake{R"({"member":"G","drop":true,"times":4294967296})",
                "times: 'times' of a fault must be at most 4294967295, not 4294967296"},
        Mistake{R"({"member":"G","drop":true,"seed":-1,"probability":0.5})",
                "seed: 'seed' of a fault must be at least 0, not -1"},
        Mistake{R"({"member":"G","drop":true,"seed":1})",
                ": 'seed' of a fault needs 'probability'"},
        Mistake{R"({"member":"G","drop":true,"probability":"often"})",
                "probability: 'probability' of a fault must be a number, not \"often\""},
        Mistake{R"({"member":"G","drop":true,"probability":0})", odds + "0.0"},
        Mistake{R"({"member":"G","drop":true,"probability":-0.1})", odds + "-0.1"},
        Mistake{R"({"member":"G","drop":true,"probability":1.0001})", odds + "1.0001"},
        Mistake{R"({"member":"G","silent":true,"delay":5})",
                ": a fault takes either 'silent' or 'delay', not both"},
        Mistake{R"({"member":"G","tmies":5,"drop":true})",
                "tmies: unknown key 'tmies' in the fault; did you mean 'times'?"},
        Mistake{R"({"member":"G","colour":5,"drop":true})",
                "colour: unknown key 'colour' in the fault"}));

TEST(FaultOptions, RefuseTwoEffectsAtOnce) {
    EXPECT_THAT(read(R"({"member":"G","error":"com.example.Busy","drop":true})").mistakes,
                ElementsAre(std::string("drop: ") + one_effect));
    EXPECT_THAT(read(R"({"member":"G","silent":true,"malformed":true})").mistakes,
                ElementsAre(std::string("malformed: ") + one_effect));
}

TEST(FaultOptions, ReportEachMistakeThatIsThere) {
    EXPECT_THAT(read(R"({"member":"G","drop":1,"times":0,"dealy":5})").mistakes,
                ElementsAre("drop: 'drop' of a fault must be true or false, not 1",
                            "times: 'times' of a fault must be at least 1, not 0",
                            "dealy: unknown key 'dealy' in the fault; did you mean 'delay'?"));
}

TEST(FaultOptions, RefuseAProbabilityThatIsNoNumberAtAll) {
    Json options = {{"member", "G"}, {"drop", true}};
    options["probability"] = std::numeric_limits<double>::quiet_NaN();
    std::string sentence;
    (void)fault_rule_from(options, [&](const std::string& /*key*/, const CommandError& mistake) {
        sentence = mistake.what();
    });
    EXPECT_EQ(": " + sentence, odds + "nan");
}

}  // namespace
}  // namespace camera
