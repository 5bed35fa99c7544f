#include "host/check/settings_text.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "framework/shared/configuration_access.hpp"
#include "tests/support/json_printing.hpp"

namespace host {
namespace {

using Fenwa::BlockConfiguration;
using Fenwa::ConfigurationAccess;
using Value = BlockConfiguration::Value;

Value sent(const Value& value) {
    const BlockConfiguration settings({BlockConfiguration::KeyValue("key", value)});
    return *ConfigurationAccess::find(settings_from_text(settings_to_text(settings)), "key");
}

TEST(SettingsMessage, HoldsEveryValueAsItIs) {
    const double infinity = std::numeric_limits<double>::infinity();
    for (const Value& value :
         {Value(true), Value(false), Value(std::int64_t{0}),
          Value(std::numeric_limits<std::int64_t>::min()),
          Value(std::numeric_limits<std::int64_t>::max()), Value(0.1), Value(5.0), Value(-infinity),
          Value(std::numeric_limits<double>::denorm_min()), Value(std::string()),
          Value(std::string("a\0\n\xff\"☂", 8)), Value(std::vector<std::string>()),
          Value(std::vector<std::string>{"", "\xfe", "true"})}) {
        EXPECT_EQ(sent(value), value) << ConfigurationAccess::describe(value);
    }
    EXPECT_TRUE(std::isnan(std::get<double>(sent(std::nan("")))));
    EXPECT_TRUE(std::signbit(std::get<double>(sent(-0.0))));
}

TEST(SettingsMessage, KeepsTheOrder) {
    const BlockConfiguration settings =
        settings_from_text(settings_to_text({{"z", 1}, {"a\n", true}, {"m", 0.5}}));
    std::string keys;
    for (const auto& entry : ConfigurationAccess::entries(settings))
        keys += entry.key();
    EXPECT_EQ(keys, "za\nm");
}

TEST(SettingsMessage, OtherTextIsRefused) {
    for (const char* text : {"", "x", "zz", "ff", "80ff"})
        EXPECT_ANY_THROW((void)settings_from_text(text)) << text;
}

}  // namespace
}  // namespace host
