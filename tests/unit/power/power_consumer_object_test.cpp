#include <cerrno>
#include <limits>
#include <utility>

#include "tests/unit/power/power_consumer_fixture.hpp"

namespace {

using namespace consumer_test;
using support::MessageFunction;

TEST_F(PowerConsumerTest, PublishesTheLastGrantInEachRunOfItsEventPort) {
    enlist();
    for (int again = 0; again < 2; ++again) {
        for (const double power : {2.5, 0.0, 7.25})
            EXPECT_EQ(set_power(power), granted);
        EXPECT_EQ(run(), Journal{}) << "for another reason";
        EXPECT_EQ(run_woken(), Journal{publication("7.25")});
        EXPECT_EQ(run(), Journal{});
    }
    lose_controller();
    EXPECT_EQ(run_woken(), Journal{publication("7.25")}) << "whatever fired the event port";
}

TEST_F(PowerConsumerTest, RecordsAGrantIsWokenOnceAndThenAnswers) {
    make();
    remark([this] { return LayoutProbe::granted_power(block()).load(); });
    const auto call = grant("d", 2.5);
    EXPECT_EQ(set_power(call, support::denied),
              (Journal{fired + " | 2.5", "answer \"\"() = 1 | 2.5", "returns 1"}))
        << "the error argument is not looked at";
    EXPECT_EQ(bus.answered(), call);
}

TEST_F(PowerConsumerTest, NarrowsAGrantToAFloatWithoutARangeCheck) {
    enlist();
    for (const auto& [power, text] : {std::pair{0.1, "0.1"},
                                      {-2.5, "-2.5"},
                                      {1e300, "inf"},
                                      {-1e300, "-inf"},
                                      {std::numeric_limits<double>::infinity(), "inf"},
                                      {3.4028234663852886e+38, "3.4028235e+38"},
                                      {std::numeric_limits<double>::quiet_NaN(), "nan"},
                                      {1e-40, "1e-40"},
                                      {1e-300, "0"},
                                      {-1e-300, "-0"}}) {
        EXPECT_EQ(set_power(power), granted);
        EXPECT_EQ(run_woken(), Journal{publication(text)});
    }
}

TEST_F(PowerConsumerTest, HandsTheResultOfTheReplyBack) {
    enlist();
    bus.make_up(MessageFunction::reply_method_return, {-ENOTCONN, 0});
    EXPECT_EQ(set_power(grant("d", 2.5)), (Journal{fired, "answer \"\"() = -107", "returns -107"}));
    EXPECT_EQ(set_power(grant("d", 3.5)), (Journal{fired, "answer \"\"() = 0"}));
    EXPECT_EQ(run_woken(), Journal{publication("3.5")})
        << "the grant counts, whether or not it can be answered";
}

TEST_F(PowerConsumerTest, KeepsItsGrantWhenTheArgumentCannotBeRead) {
    enlist();
    EXPECT_EQ(set_power(2.5), granted);
    const std::string line = "1 Failed to parse parameters: ";
    for (const auto& call : {grant("s", "much"), grant(""), grant("i", 3)})
        EXPECT_EQ(set_power(call), (Journal{line + "No such device or address", "returns -6"}));
    EXPECT_EQ(set_power(nullptr), (Journal{line + "Invalid argument", "returns -22"}));
    bus.change_results(MessageFunction::read, {-EPERM});
    EXPECT_EQ(set_power(grant("d", 7.5)),
              (Journal{line + "Operation not permitted", "returns -1"}));
    EXPECT_EQ(run_woken(), Journal{publication("2.5")});
}

TEST_F(PowerConsumerTest, TakesAnyReadThatDoesNotFailForAGrant) {
    enlist();
    EXPECT_EQ(set_power(2.5), granted);
    bus.make_up(MessageFunction::read, {0});
    EXPECT_EQ(set_power(2.5), granted);
    EXPECT_EQ(run_woken(), Journal{nothing_granted}) << "what a read leaves alone is zero";
}

}  // namespace
