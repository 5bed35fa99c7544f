#include "host/runtime/throttle.hpp"

#include <gtest/gtest.h>

namespace host {
namespace {

constexpr std::uint64_t start = 1'000'000'000;
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
