#include <gtest/gtest.h>

#include <ctime>

#include "framework/shared/configuration_access.hpp"

namespace {

using Fenwa::BlockConfiguration;
using Entries = std::vector<BlockConfiguration::KeyValue>;

constexpr int many = 100'000;

std::string key(int i) {
    return "key." + std::to_string(i);
}

TEST(LargeConfigurationTest, IsMadeReadAndCombinedQuicklyAndKeepsItsOrder) {
    const std::clock_t start = std::clock();
    Entries twice;
    for (int i = 0; i < many; ++i)
        twice.emplace_back(key(i), 1);
    const BlockConfiguration defaults(twice);
    for (int i = many - 1; i >= 0; --i)
        twice.emplace_back(key(i), i);
    const BlockConfiguration combined = defaults + BlockConfiguration(twice);
    const Entries& kept = Fenwa::ConfigurationAccess::entries(combined);
    ASSERT_EQ(kept.size(), static_cast<std::size_t>(many));
    for (int i = 0; i < many; ++i) {
        ASSERT_EQ(kept[static_cast<std::size_t>(i)].key(), key(i));
        ASSERT_EQ(combined.getInt(key(i)) + combined.getInt("absent." + key(i), 0), i);
    }
    // A tenth of a second of processor time if each key is found at once, minutes if all are
    // compared.
    EXPECT_LT(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC, 10.0);
}

}  // namespace
