#include "host/runtime/throttle.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace host {
namespace {

constexpr std::uint64_t start = 1'000'000'000;
constexpr std::uint64_t second = 1'000'000;
constexpr std::uint64_t never = std::numeric_limits<std::uint64_t>::max();

/// Takes as many runs as there are at that time.
int take_all(TokenBucket& budget, std::uint64_t now, int most = 1'000'000) {
    int runs = 0;
    while (runs < most && budget.take(now))
        ++runs;
    return runs;
}

TEST(RateLimit, ZeroInEitherSwitchesTheBrakeOff) {
    EXPECT_TRUE(RateLimit().enabled());
    EXPECT_FALSE((RateLimit{0, 200.0}.enabled()));
    EXPECT_FALSE((RateLimit{64, 0.0}.enabled()));
}

TEST(TokenBucket, IsFullAtFirst) {
    TokenBucket budget(RateLimit{}, start);
    EXPECT_EQ(take_all(budget, start), 64);
}

TEST(TokenBucket, IsRefilledAtTheRateUpToTheBurst) {
    TokenBucket budget(RateLimit{}, start);
    take_all(budget, start);
    EXPECT_EQ(take_all(budget, start + second / 10), 20);
    EXPECT_EQ(take_all(budget, start + second / 5), 20);
    EXPECT_EQ(take_all(budget, start + 1000 * second), 64);
}

TEST(TokenBucket, GivesNoRunBeforeItIsDueAndOneThen) {
    for (const double rate : {200.0, 3.0, 0.7, 1e4, 333.3, 1e3 / 3}) {
        TokenBucket budget({2, rate}, start);
        std::uint64_t now = start;
        take_all(budget, now);
        for (int run = 0; run < 10'000; ++run) {
            const std::uint64_t due = budget.due();
            ASSERT_GT(due, now) << rate;
            ASSERT_FALSE(budget.take(due - 1)) << rate;
            ASSERT_TRUE(budget.take(due)) << rate;
            ASSERT_FALSE(budget.take(due)) << rate;
            now = due;
        }
        // Each time is rounded up to the microsecond that follows, and nothing is lost by that.
        EXPECT_NEAR(static_cast<double>(now - start), 10'000 / rate * 1e6, 100.0) << rate;
    }
}

TEST(TokenBucket, LateCallerMakesUpForTheTime) {
    TokenBucket budget({64, 200.0}, start);
    take_all(budget, start);
    std::uint64_t now = start;
    int runs = 0;
    for (int i = 0; i < 1000; ++i) {
        now = budget.due() + 10'000;
        runs += take_all(budget, now);
    }
    EXPECT_NEAR(runs, static_cast<double>(now - start) / 1e6 * 200.0, 1.0);
}

TEST(TokenBucket, TimeThatStandsStillOrGoesBackGivesNothing) {
    TokenBucket budget({1, 1.0}, start);
    EXPECT_TRUE(budget.take(start));
    EXPECT_FALSE(budget.take(start - second));
    EXPECT_FALSE(budget.take(start));
    EXPECT_TRUE(budget.take(start + second));
}

TEST(TokenBucket, RateBeyondAllClocksIsNeverDue) {
    for (const double rate : {1e-300, std::numeric_limits<double>::denorm_min()}) {
        TokenBucket budget({1, rate}, start);
        EXPECT_TRUE(budget.take(start));
        EXPECT_EQ(budget.due(), never);
        EXPECT_FALSE(budget.take(start + 1'000'000 * second));
    }
}

TEST(TokenBucket, LargestNumbersBrakeNothing) {
    TokenBucket budget(
        {std::numeric_limits<std::int64_t>::max(), std::numeric_limits<double>::max()}, start);
    EXPECT_EQ(take_all(budget, start, 100'000), 100'000);
    TokenBucket fast({1, std::numeric_limits<double>::max()}, start);
    EXPECT_TRUE(fast.take(start));
    EXPECT_EQ(fast.due(), start + 1);
    EXPECT_TRUE(fast.take(start + 1));
}

constexpr double millisecond = 1e6;  // of processor time

TEST(RetryBudget, GivesTheShareOverAnyTime) {
    RetryBudget budget;
    double used = 0.0;
    for (std::uint64_t now = start; now < start + 10 * second; now += 1000) {
        while (budget.allows(now)) {
            budget.charge(0.1 * millisecond);
            used += 0.1 * millisecond;
        }
    }
    EXPECT_NEAR(used, RetryBudget::share * 1e10 + RetryBudget::burst, 0.5 * millisecond);
}

TEST(RetryBudget, SavesUpNoMoreThanABurst) {
    RetryBudget budget;
    EXPECT_TRUE(budget.allows(start));
    EXPECT_TRUE(budget.allows(start + 1000 * second));
    budget.charge(RetryBudget::burst);
    EXPECT_FALSE(budget.allows(start + 1000 * second));
}

TEST(RetryBudget, RunThatCostsMoreThanThereIsIsPaidForAfterwards) {
    RetryBudget budget;
    EXPECT_TRUE(budget.allows(start));
    budget.charge(RetryBudget::burst + 20 * millisecond);
    EXPECT_FALSE(budget.allows(start));
    // 20 ms at 2 % of a core, and a portion.
    EXPECT_EQ(budget.due(), start + second + second / 80);
    EXPECT_FALSE(budget.allows(budget.due() - 1));
    EXPECT_TRUE(budget.allows(budget.due()));
}

TEST(RetryBudget, WaitsForAPortionOnlyOnceItIsSpent) {
    RetryBudget budget;
    EXPECT_TRUE(budget.allows(start));
    budget.charge(RetryBudget::burst - RetryBudget::portion / 2);
    EXPECT_TRUE(budget.allows(start));
}

constexpr std::size_t mark = Backpressure::high_watermark;

TEST(Backpressure, HoldsFromTheMarkUntilTheNumberIsBelowIt) {
    Backpressure hold;
    EXPECT_FALSE(hold.should_wait(mark - 1, start));
    EXPECT_TRUE(hold.should_wait(mark, start));
    EXPECT_TRUE(hold.should_wait(mark + 30, start + 1));
    EXPECT_FALSE(hold.should_wait(mark - 1, start + 2));
    EXPECT_TRUE(hold.should_wait(mark, start + 3));
}

TEST(Backpressure, GivesUpWhenNoAnswerComes) {
    Backpressure hold;
    EXPECT_TRUE(hold.should_wait(mark, start));
    EXPECT_EQ(hold.due(), start + 250'000);
    EXPECT_TRUE(hold.should_wait(mark, hold.due() - 1));
    EXPECT_FALSE(hold.should_wait(mark, hold.due()));
    EXPECT_FALSE(hold.should_wait(mark + 1000, hold.due() + 1));
}

TEST(Backpressure, EachAnswerLetsItWaitOn) {
    Backpressure hold;
    EXPECT_TRUE(hold.should_wait(mark, start));
    for (std::uint64_t now = start; now < start + 10'000'000; now += 200'000) {
        EXPECT_TRUE(hold.should_wait(mark, now));
        hold.answered(now);
    }
}

TEST(Backpressure, HoldsAgainOnlyAfterTheNumberWasBelowTheMark) {
    Backpressure hold;
    EXPECT_TRUE(hold.should_wait(mark, start));
    EXPECT_FALSE(hold.should_wait(mark, hold.due()));
    hold.answered(start + 1'000'000);
    EXPECT_FALSE(hold.should_wait(mark, start + 1'000'000));
    EXPECT_FALSE(hold.should_wait(mark - 1, start + 1'000'001));
    EXPECT_TRUE(hold.should_wait(mark, start + 2'000'000));
    EXPECT_EQ(hold.due(), start + 2'250'000);
}

constexpr std::uint64_t interval = RefusedMatches::interval;

class RefusedMatchesTest : public testing::Test {
  protected:
    RefusedMatchesTest() {
        for (Fenwa::Block* block : {&a_, &b_, &c_}) {
            matches_.add(*block);
            matches_.wait(*block);
        }
    }

    RefusedMatches matches_;
    Fenwa::Block a_{"a", {}};
    Fenwa::Block b_{"b", {}};
    Fenwa::Block c_{"c", {}};
};

TEST_F(RefusedMatchesTest, TakeTurnsWithTheIntervalBetweenThem) {
    EXPECT_TRUE(matches_.should_wait(a_));
    EXPECT_EQ(matches_.take(start), &a_);
    EXPECT_FALSE(matches_.should_wait(a_));
    EXPECT_EQ(matches_.take(start), nullptr);
    EXPECT_EQ(matches_.due(), start + interval);
    matches_.add(a_);
    matches_.wait(a_);
    EXPECT_EQ(matches_.take(start + interval - 1), nullptr);
    EXPECT_EQ(matches_.take(start + interval), &b_);
    EXPECT_EQ(matches_.take(start + 2 * interval), &c_);
    EXPECT_EQ(matches_.take(start + 3 * interval), &a_);
    EXPECT_FALSE(matches_.is_anyone_waiting());
    EXPECT_EQ(matches_.take(start + 9 * interval), nullptr);
}

TEST_F(RefusedMatchesTest, NextFollowsAtOnceWhenATrySucceeds) {
    EXPECT_EQ(matches_.take(start), &a_);
    matches_.installed(c_);
    EXPECT_EQ(matches_.take(start + 1), nullptr) << "it was not its turn";
    matches_.installed(a_);
    EXPECT_EQ(matches_.take(start + 1), &b_);
    EXPECT_EQ(matches_.take(start + 1), nullptr);
}

TEST_F(RefusedMatchesTest, BlockThatIsTakenOutIsNotHeld) {
    EXPECT_TRUE(matches_.remove(b_));
    EXPECT_FALSE(matches_.should_wait(b_));
    EXPECT_FALSE(matches_.remove(b_));
    EXPECT_EQ(matches_.take_all(), (std::vector<Fenwa::Block*>{&a_, &c_}));
    EXPECT_FALSE(matches_.should_wait(a_));
    EXPECT_FALSE(matches_.is_anyone_waiting());
}

TEST_F(RefusedMatchesTest, NobodyIsHeldAfterAClear) {
    matches_.clear();
    EXPECT_FALSE(matches_.should_wait(a_));
    EXPECT_EQ(matches_.take(start), nullptr);
}

}  // namespace
}  // namespace host
