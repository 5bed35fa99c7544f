#include "host/runtime/block_status.hpp"

#include <gtest/gtest.h>

namespace host {
namespace {

constexpr std::uint64_t second = 1'000'000;
constexpr std::uint64_t start = 1000 * second;

TEST(BlockStatus, CountsTheRunsOfTheLastSeconds) {
    BlockStatus status;
    EXPECT_EQ(status.runs_per_second(start), 0.0);
    for (std::uint64_t run = 0; run < 100; ++run)
        status.ran(start + run * second / 10);
    EXPECT_EQ(status.runs(), 100U);
    EXPECT_EQ(status.last_run(), start + 99 * second / 10);
    EXPECT_NEAR(status.runs_per_second(start + 10 * second), 10.0, 0.6);
    EXPECT_EQ(status.runs_per_second(start + 12 * second), 0.0) << "it has stopped";
}

TEST(BlockStatus, FirstRunsAreNoRateYet) {
    BlockStatus status;
    status.ran(start);
    status.ran(start + 10);
    EXPECT_EQ(status.runs_per_second(start + 20), 2.0);
}

}  // namespace
}  // namespace host
