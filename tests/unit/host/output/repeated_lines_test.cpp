#include "host/output/repeated_lines.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <thread>
#include <vector>

namespace host {
namespace {

using Told = std::vector<std::string>;
using Milliseconds = std::chrono::milliseconds;

class RepeatedLinesTest : public testing::Test {
  protected:
    /// What has been told since the last time, "BLOCK LEVEL MESSAGE" each.
    Told take() { return std::exchange(told_, {}); }

    bool log(const std::string& block, const std::string& message, int level = 2) {
        return lines_.log({block, level, message}, now_);
    }
    void pass(int milliseconds) { now_ += Milliseconds(milliseconds); }
    void settle() { lines_.settle(now_); }

    Told told_;
    RepeatedLines lines_{[this](const RepeatedLines::Line& line) {
        told_.push_back(line.block + " " + std::to_string(line.level) + " " + line.message);
    }};
    RepeatedLines::Clock::time_point now_{std::chrono::hours(1)};
};

TEST_F(RepeatedLinesTest, LineIsToldAtOnce) {
    EXPECT_FALSE(log("b", "no answer"));
    EXPECT_EQ(take(), (Told{"b 2 no answer"}));
    EXPECT_FALSE(lines_.is_counting());
}

TEST_F(RepeatedLinesTest, LinesThatComeTenTimesASecondAreAllTold) {
    for (int i = 0; i < 5; ++i) {
        EXPECT_FALSE(log("b", "no answer"));
        EXPECT_EQ(take(), (Told{"b 2 no answer"}));
        pass(100);
        settle();
    }
    EXPECT_EQ(take(), Told{});
}

TEST_F(RepeatedLinesTest, LinesThatComeFasterAreToldOnceAndThenWithTheirNumber) {
    log("b", "no answer");
    pass(99);
    EXPECT_TRUE(log("b", "no answer"));
    pass(1);
    EXPECT_FALSE(log("b", "no answer")) << "somebody settles already";
    EXPECT_EQ(take(), (Told{"b 2 no answer"}));
    EXPECT_TRUE(lines_.is_counting());
    pass(99);
    settle();
    EXPECT_EQ(take(), Told{}) << "they may go on";
    pass(1);
    settle();
    EXPECT_EQ(take(), (Told{"b 2 repeated 2 times in 0.1 s: no answer"}));
    EXPECT_FALSE(lines_.is_counting());
    pass(1);
    EXPECT_FALSE(log("b", "no answer"));
    EXPECT_EQ(take(), (Told{"b 2 no answer"})) << "as if none had come before";
}

TEST_F(RepeatedLinesTest, NumberIsToldEachSecondWhileTheLinesGoOn) {
    for (int i = 0; i <= 750; ++i) {
        log("b", "no answer");
        now_ += std::chrono::microseconds(1'000'000 / 260 + 1);
    }
    lines_.finish();
    const Told told = take();
    ASSERT_EQ(told.size(), 4U);
    EXPECT_EQ(told[0], "b 2 no answer");
    int sum = 0;
    for (std::size_t i = 1; i < told.size(); ++i) {
        int number = 0;
        double seconds = 0.0;
        ASSERT_EQ(
            std::sscanf(told[i].c_str(), "b 2 repeated %d times in %lf s: no", &number, &seconds),
            2)
            << told[i];
        sum += number;
        EXPECT_NEAR(seconds, i < 3 ? 1.0 : 0.85, 0.11) << told[i];
    }
    EXPECT_EQ(sum, 750);
}

TEST_F(RepeatedLinesTest, OneMoreIsOneTime) {
    log("b", "no answer");
    log("b", "no answer");
    lines_.finish();
    EXPECT_EQ(take(), (Told{"b 2 no answer", "b 2 repeated 1 time in 0.0 s: no answer"}));
    lines_.finish();
    EXPECT_EQ(take(), Told{});
}

TEST_F(RepeatedLinesTest, NumberComesBeforeTheNextLineWhereNobodyHasSettled) {
    log("b", "no answer");
    pass(50);
    log("b", "no answer");
    pass(5000);
    log("b", "no answer");
    EXPECT_EQ(take(),
              (Told{"b 2 no answer", "b 2 repeated 1 time in 0.1 s: no answer", "b 2 no answer"}));
}

TEST_F(RepeatedLinesTest, NumberComesBeforeTheNextLineWhereSettlingCameTooEarly) {
    log("b", "no answer");
    pass(10);
    log("b", "no answer");
    pass(50);
    settle();
    EXPECT_EQ(take(), (Told{"b 2 no answer"}));
    pass(50);
    EXPECT_FALSE(log("b", "no answer"));
    EXPECT_EQ(take(), (Told{"b 2 repeated 1 time in 0.0 s: no answer", "b 2 no answer"}));
    EXPECT_FALSE(lines_.is_counting());
}

TEST_F(RepeatedLinesTest, OneOfAllThatAreNotToldAsksForSettling) {
    log("b", "no answer");
    log("c", "no answer");
    EXPECT_TRUE(log("b", "no answer"));
    EXPECT_FALSE(log("c", "no answer"));
}

TEST_F(RepeatedLinesTest, BlocksTextsAndLevelsAreToldApartHoweverTheyInterleave) {
    for (int i = 0; i < 10; ++i) {
        log("b", "no answer");
        log("c", "no answer");
        log("b", "refused");
        log("b", "no answer", 1);
        log("", "no answer");
        pass(1);
    }
    EXPECT_EQ(take(), (Told{"b 2 no answer", "c 2 no answer", "b 2 refused", "b 1 no answer",
                            " 2 no answer"}));
    pass(100);
    settle();
    EXPECT_EQ(
        take(),
        (Told{" 2 repeated 9 times in 0.0 s: no answer", "b 1 repeated 9 times in 0.0 s: no answer",
              "b 2 repeated 9 times in 0.0 s: no answer", "b 2 repeated 9 times in 0.0 s: refused",
              "c 2 repeated 9 times in 0.0 s: no answer"}));
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
    // Ten microseconds a line, so that numbers are told all the while.
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
