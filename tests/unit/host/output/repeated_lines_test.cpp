#include "host/output/repeated_lines.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <thread>
#include <vector>

namespace host {
namespace {

using Told = std::vector<std::string>;

class RepeatedLinesTest : public testing::Test {
  protected:
    /// Expects these lines since the last time, "BLOCK LEVEL MESSAGE" each.
    void expect_told(const Told& told) { EXPECT_EQ(std::exchange(told_, {}), told); }

    bool log(const std::string& block = "b", const std::string& message = "no answer",
             int level = 2) {
        return lines_.log({block, level, message}, now_);
    }
    void pass(int milliseconds) { now_ += std::chrono::milliseconds(milliseconds); }
    void settle() { lines_.settle(now_); }

    Told told_;
    RepeatedLines lines_{[this](const RepeatedLines::Line& line) {
        told_.push_back(line.block + " " + std::to_string(line.level) + " " + line.message);
    }};
    RepeatedLines::Clock::time_point now_{std::chrono::hours(1)};
};

const std::string told_line = "b 2 no answer";

TEST_F(RepeatedLinesTest, LinesThatComeTenTimesASecondAreAllToldAtOnce) {
    for (int i = 0; i < 5; ++i) {
        EXPECT_FALSE(log());
        expect_told({told_line});
        EXPECT_FALSE(lines_.is_counting());
        pass(100);
        settle();
    }
    expect_told({});
}

TEST_F(RepeatedLinesTest, LinesThatComeFasterAreToldOnceAndThenWithTheirNumber) {
    log();
    pass(99);
    EXPECT_TRUE(log());
    pass(1);
    EXPECT_FALSE(log()) << "somebody settles already";
    expect_told({told_line});
    EXPECT_TRUE(lines_.is_counting());
    pass(99);
    settle();
    expect_told({});  // they may go on
    pass(1);
    settle();
    expect_told({"b 2 repeated 2 times in 0.1 s: no answer"});
    EXPECT_FALSE(lines_.is_counting());
    pass(1);
    EXPECT_FALSE(log());
    expect_told({told_line});  // as if none had come before
}

TEST_F(RepeatedLinesTest, NumberIsToldEachSecondWhileTheLinesGoOn) {
    for (int i = 0; i <= 750; ++i) {
        log();
        now_ += std::chrono::microseconds(1'000'000 / 260 + 1);
    }
    lines_.finish();
    ASSERT_EQ(told_.size(), 4U);
    EXPECT_EQ(told_[0], told_line);
    int sum = 0;
    for (std::size_t i = 1; i < told_.size(); ++i) {
        int number = 0;
        double seconds = 0.0;
        std::sscanf(told_[i].c_str(), "b 2 repeated %d times in %lf s: no", &number, &seconds);
        sum += number;
        EXPECT_NEAR(seconds, i < 3 ? 1.0 : 0.85, 0.11) << told_[i];
    }
    EXPECT_EQ(sum, 750);
}

TEST_F(RepeatedLinesTest, OneMoreIsOneTime) {
    log();
    log();
    lines_.finish();
    expect_told({told_line, "b 2 repeated 1 time in 0.0 s: no answer"});
    lines_.finish();
    expect_told({});
}

TEST_F(RepeatedLinesTest, NumberComesBeforeTheNextLineWhereNobodyHasSettledOrTooEarly) {
    log();
    pass(50);
    log();
    pass(5000);
    log();
    expect_told({told_line, "b 2 repeated 1 time in 0.1 s: no answer", told_line});
    pass(10);
    log();
    pass(50);
    settle();
    expect_told({});
    pass(50);
    EXPECT_FALSE(log());
    expect_told({"b 2 repeated 1 time in 0.0 s: no answer", told_line});
    EXPECT_FALSE(lines_.is_counting());
}

TEST_F(RepeatedLinesTest, OneOfAllThatAreNotToldAsksForSettling) {
    log("b");
    log("c");
    EXPECT_TRUE(log("b"));
    EXPECT_FALSE(log("c"));
}

TEST_F(RepeatedLinesTest, BlocksTextsAndLevelsAreToldApartHoweverTheyInterleave) {
    for (int i = 0; i < 10; ++i) {
        log("b");
        log("c");
        log("b", "refused");
        log("b", "no answer", 1);
        log("");
        pass(1);
    }
    expect_told({told_line, "c 2 no answer", "b 2 refused", "b 1 no answer", " 2 no answer"});
    pass(100);
    settle();
    const std::string repeated = " repeated 9 times in 0.0 s: ";
    expect_told({" 2" + repeated + "no answer", "b 1" + repeated + "no answer",
                 "b 2" + repeated + "no answer", "b 2" + repeated + "refused",
                 "c 2" + repeated + "no answer"});
    EXPECT_FALSE(lines_.is_counting());
}

TEST(RepeatedLinesThreads, NumbersAreExact) {
    std::uint64_t first = 0;
    std::uint64_t repeated = 0;
    RepeatedLines lines([&](const RepeatedLines::Line& line) {
        unsigned long long number = 0;
        if (std::sscanf(line.message.c_str(), "repeated %llu time", &number) == 1)
            repeated += number;
        else
            ++first;
    });
    // Ten microseconds a line, so that numbers come all the while.
    std::atomic<int> ticks = 0;
    const auto now = [&ticks] {
        return RepeatedLines::Clock::time_point(std::chrono::hours(1)) +
               std::chrono::microseconds(10) * ticks++;
    };
    std::latch all_there(3);
    const auto flood = [&](const std::string& block) {
        all_there.arrive_and_wait();
        for (int i = 0; i < 100'000; ++i)
            lines.log({block, 2, "no answer"}, now());
    };
    {
        const std::jthread one(flood, "b");
        const std::jthread two(flood, "b");
        const std::jthread three(flood, "c");
        for (int i = 0; i < 1000; ++i)
            lines.settle(now());
    }
    lines.finish();
    EXPECT_EQ(first + repeated, 300'000U);
    EXPECT_LT(first, 150'000U);
}

}  // namespace
}  // namespace host
