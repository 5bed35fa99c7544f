#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "camera/service/fault_rules.hpp"

namespace camera {
namespace {

using common::Json;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// The result of reading a rule: the rule, and its mistakes as "KEY: SENTENCE".
struct Read {
    FaultRule rule;
    std::vector<std::string> mistakes;
};

Read read_json(const Json& options) {
    Read read;
    read.rule = fault_rule_from(options, [&](const std::string& key, const CommandError& mistake) {
        read.mistakes.push_back(key + ": " + mistake.what());
    });
    return read;
}
Read read(const std::string& options) {
    return read_json(common::parse_json(options, "the text"));
}

TEST(FaultOptions, ReadEveryOption) {
    const Read all = read(R"({"member":"temperature.Get","error":"com.example.Error.Busy",
        "delay":250,"times":3,"probability":0.5,"seed":9})");
    EXPECT_THAT(all.mistakes, IsEmpty());
    EXPECT_EQ(all.rule.target(), "temperature.Get");
    EXPECT_EQ(all.rule.effect, FaultEffect::error);
    EXPECT_EQ(all.rule.seed, 9U);
    EXPECT_EQ(all.rule.description(),
              "answered with com.example.Error.Busy after 250 ms, with probability 0.5, 3 times");
}

TEST(FaultOptions, ReadEachEffectAndTheLargestNumbers) {
    EXPECT_EQ(read(R"({"member":"G","malformed":true})").rule.effect, FaultEffect::malformed);
    EXPECT_EQ(read(R"({"member":"G","silent":true})").rule.effect, FaultEffect::silent);
    const Read late = read(R"({"member":"G","delay":86400000,"times":4294967295})");
    EXPECT_THAT(late.mistakes, IsEmpty());
    EXPECT_EQ(late.rule.effect, FaultEffect::none);
    EXPECT_EQ(late.rule.delay, max_fault_delay);
    EXPECT_EQ(late.rule.times, 4294967295U);
    EXPECT_EQ(late.rule.probability, 1.0);
    const Read drop = read(
        R"({"member":"G","malformed":false,"silent":false,"drop":true,"probability":1,"seed":0})");
    EXPECT_THAT(drop.mistakes, IsEmpty());
    EXPECT_EQ(drop.rule.effect, FaultEffect::drop) << "a flag that is false is not asked";
}

struct Mistake {
    const char* options;  ///< besides a member
    std::string sentence;
};
void PrintTo(const Mistake& mistake, std::ostream* out) {
    *out << mistake.options;
}

class FaultMistakes : public ::testing::TestWithParam<Mistake> {};

TEST_P(FaultMistakes, AreReportedWithASentence) {
    EXPECT_THAT(read(std::string(R"({"member":"G",)") + GetParam().options + '}').mistakes,
                ElementsAre(GetParam().sentence));
}

const std::string odds = ": 'probability' of a fault must be above 0 and at most 1, not ";

INSTANTIATE_TEST_SUITE_P(
    Each, FaultMistakes,
    ::testing::Values(
        Mistake{R"("member":5,"drop":true)", "member: 'member' of a fault must be a string, not 5"},
        Mistake{R"("member":"","drop":true)",
                ": a fault needs 'member', the name of a method, signal or property"},
        Mistake{R"("times":3)",
                ": a fault needs one of 'error', 'malformed', 'silent', 'drop' and 'delay'"},
        Mistake{R"("error":true)", "error: 'error' of a fault must be a string, not true"},
        Mistake{R"("error":"Busy")",
                ": 'Busy' is not a valid D-Bus error name, such as com.example.Error.Busy"},
        Mistake{R"("error":"")",
                ": '' is not a valid D-Bus error name, such as com.example.Error.Busy"},
        Mistake{R"("silent":1)", "silent: 'silent' of a fault must be true or false, not 1"},
        Mistake{R"("delay":1,"malformed":"yes")",
                "malformed: 'malformed' of a fault must be true or false, not \"yes\""},
        Mistake{R"("drop":null)", "drop: 'drop' of a fault must be true or false, not null"},
        Mistake{R"("delay":0)", "delay: 'delay' of a fault must be at least 1, not 0"},
        Mistake{R"("delay":1.5)", "delay: 'delay' of a fault must be an integer, not 1.5"},
        Mistake{R"("delay":86400001)",
                "delay: 'delay' of a fault must be at most 86400000 ms (a day), not 86400001"},
        Mistake{R"("delay":18446744073709551615)",
                "delay: 'delay' of a fault must be at most 86400000 ms (a day), not "
                "18446744073709551615"},
        Mistake{R"("drop":true,"times":-3)",
                "times: 'times' of a fault must be at least 1, not -3"},
        Mistake{R"("drop":true,"times":"two")",
                "times: 'times' of a fault must be an integer, not \"two\""},
        Mistake{R"("drop":true,"times":4294967296)",
                "times: 'times' of a fault must be at most 4294967295, not 4294967296"},
        Mistake{R"("drop":true,"seed":-1,"probability":0.5)",
                "seed: 'seed' of a fault must be at least 0, not -1"},
        Mistake{R"("drop":true,"seed":1)", ": 'seed' of a fault needs 'probability'"},
        Mistake{R"("drop":true,"probability":"often")",
                "probability: 'probability' of a fault must be a number, not \"often\""},
        Mistake{R"("drop":true,"probability":0)", odds + "0.0"},
        Mistake{R"("drop":true,"probability":-0.1)", odds + "-0.1"},
        Mistake{R"("drop":true,"probability":1.0001)", odds + "1.0001"},
        Mistake{R"("error":"com.example.Busy","drop":true)",
                "drop: a fault takes only one of 'error', 'malformed', 'silent' and 'drop'"},
        Mistake{R"("silent":true,"malformed":true)",
                "malformed: a fault takes only one of 'error', 'malformed', 'silent' and 'drop'"},
        Mistake{R"("silent":true,"delay":5)",
                ": a fault takes either 'silent' or 'delay', not both"},
        Mistake{R"("tmies":5,"drop":true)",
                "tmies: unknown key 'tmies' in the fault; did you mean 'times'?"},
        Mistake{R"("colour":5,"drop":true)", "colour: unknown key 'colour' in the fault"}));

TEST(FaultOptions, RefuseAProbabilityThatIsNoNumberAtAll) {
    Json options = {{"member", "G"}, {"drop", true}};
    options["probability"] = std::numeric_limits<double>::quiet_NaN();
    EXPECT_THAT(read_json(options).mistakes, ElementsAre(odds + "nan"));
}

}  // namespace
}  // namespace camera
