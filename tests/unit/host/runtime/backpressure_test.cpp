#include "host/runtime/throttle.hpp"

#include <gtest/gtest.h>

namespace host {
namespace {

constexpr std::size_t mark = Backpressure::high_watermark;
constexpr std::uint64_t start = 1'000'000'000;

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

}  // namespace
}  // namespace host
