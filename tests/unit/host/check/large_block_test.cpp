#include <gtest/gtest.h>

#include <ctime>

#include "host/value/port_value.hpp"
#include "tests/support/json_printing.hpp"

namespace host {
namespace {

constexpr int many = 50'000;
/// Processor time: far more than it takes, and far less than comparing every key with every other.
constexpr double enough_seconds = 10.0;

double seconds_since(std::clock_t start) {
    return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

TEST(LargeBlock, SettingsAreShownQuickly) {
    std::vector<Fenwa::BlockConfiguration::KeyValue> entries;
    for (int i = 0; i < many; ++i)
        entries.emplace_back("key." + std::to_string(i), i);
    const std::clock_t start = std::clock();
    const common::Json shown = to_json(Fenwa::BlockConfiguration(entries));
    EXPECT_LT(seconds_since(start), enough_seconds);
    ASSERT_EQ(shown.size(), static_cast<std::size_t>(many));
    EXPECT_EQ(shown.back(), many - 1);
}

}  // namespace
}  // namespace host
