#include <gtest/gtest.h>

#include "fenwa/block_configuration.hpp"

namespace {

using Fenwa::BlockConfiguration;
using Fenwa::ConfigurationError;

/// The error that the call ends in.
template <class Call>
ConfigurationError error_of(Call call) {
    try {
        call();
    } catch (const ConfigurationError& error) {
        return error;
    }
    ADD_FAILURE() << "no ConfigurationError";
    return {"", "", ""};
}

TEST(ConfigurationErrorTest, NamesAMissingKeyAndItsType) {
    const BlockConfiguration config;
    const auto error = error_of([&] { (void)config.getDouble("delta_chg"); });
    EXPECT_STREQ(error.what(), "the required key 'delta_chg' (a double) is missing");
    EXPECT_EQ(error.key(), "delta_chg");
    EXPECT_EQ(error.wanted(), "double");
    EXPECT_EQ(error.found(), "");
    EXPECT_TRUE(error.missing());
    EXPECT_STREQ(error_of([&] { (void)config.getBool("a"); }).what(),
                 "the required key 'a' (a bool) is missing");
    EXPECT_STREQ(error_of([&] { (void)config.getFloat("a"); }).what(),
                 "the required key 'a' (a float) is missing");
    EXPECT_STREQ(error_of([&] { (void)config.getString("a"); }).what(),
                 "the required key 'a' (a string) is missing");
}

TEST(ConfigurationErrorTest, SaysWhatStandsThereInstead) {
    const auto text = [](const BlockConfiguration::KeyValue& entry) {
        const BlockConfiguration config{entry};
        return error_of([&] { (void)config.getInt("key"); }).found();
    };
    EXPECT_EQ(text({"key", true}), "the boolean true");
    EXPECT_EQ(text({"key", false}), "the boolean false");
    EXPECT_EQ(text({"key", std::int64_t{1} << 40}), "the integer 1099511627776");
    EXPECT_EQ(text({"key", 2.5}), "a float");
    EXPECT_EQ(text({"key", std::string("seven")}), "the string \"seven\"");
    EXPECT_EQ(text({"key", {"a", "b"}}), "an array of 2 strings");
}

TEST(ConfigurationErrorTest, ShortensLongStrings) {
    const auto found = [](std::size_t length) {
        const BlockConfiguration config{{"key", std::string(length, 'x')}};
        return error_of([&] { (void)config.getBool("key"); }).found();
    };
    EXPECT_EQ(found(60), "the string \"" + std::string(60, 'x') + "\"");
    EXPECT_EQ(found(61), "the string \"" + std::string(60, 'x') + "…\"");
}

TEST(ConfigurationErrorTest, IsASentence) {
    const BlockConfiguration config{{"key", true}};
    const auto integer = error_of([&] { (void)config.getInt("key"); });
    EXPECT_STREQ(integer.what(), "the key 'key' must be an int, not the boolean true");
    EXPECT_FALSE(integer.missing());
    const auto string = error_of([&] { (void)config.getString("key", "x"); });
    EXPECT_STREQ(string.what(), "the key 'key' must be a string, not the boolean true");
    EXPECT_EQ(string.wanted(), "string");
    EXPECT_STREQ(error_of([&] { (void)BlockConfiguration().getInt("key"); }).what(),
                 "the required key 'key' (an int) is missing");
}

}  // namespace
