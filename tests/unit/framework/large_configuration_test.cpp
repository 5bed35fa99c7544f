#include <gtest/gtest.h>

#include <ctime>

#include "framework/shared/configuration_access.hpp"

namespace {

using Fenwa::BlockConfiguration;
using Fenwa::ConfigurationAccess;
using Entries = std::vector<BlockConfiguration::KeyValue>;

constexpr int many = 100'000;

std::string key(int i) {
    return "key." + std::to_string(i);
}

Entries entries(int value) {
    Entries list;
    for (int i = 0; i < many; ++i)
        list.emplace_back(key(i), value);
    return list;
}

/// Processor time since it was made, which other programs do not lengthen.
class Stopwatch {
  public:
    [[nodiscard]] double seconds() const {
        return static_cast<double>(std::clock() - start_) / CLOCKS_PER_SEC;
    }

  private:
    std::clock_t start_ = std::clock();
};

/// What takes a tenth of a second when each key is found at once takes minutes when all are
/// compared.
constexpr double enough_seconds = 10.0;

TEST(LargeConfigurationTest, IsMadeReadAndCombinedQuickly) {
    const Stopwatch watch;
    const BlockConfiguration defaults(entries(1));
    const BlockConfiguration given(entries(2));
    const BlockConfiguration combined = defaults + given;
    std::int64_t sum = 0;
    for (int i = 0; i < many; ++i)
        sum += combined.getInt(key(i)) + combined.getInt("absent." + std::to_string(i), 0);
    EXPECT_EQ(sum, 2 * many);
    EXPECT_LT(watch.seconds(), enough_seconds);
}

TEST(LargeConfigurationTest, KeepsTheOrderInWhichItsKeysWereFirstGiven) {
    Entries twice = entries(1);
    for (int i = many - 1; i >= 0; --i)
        twice.emplace_back(key(i), i);
    const BlockConfiguration config(twice);
    const Entries& kept = ConfigurationAccess::entries(config);
    ASSERT_EQ(kept.size(), static_cast<std::size_t>(many));
    for (int i = 0; i < many; ++i) {
        ASSERT_EQ(kept[static_cast<std::size_t>(i)].key(), key(i));
        ASSERT_EQ(config.getInt(key(i)), i);
    }
}

}  // namespace
