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
    const BlockConfiguration none;
    const ConfigurationError errors[] = {
        error_of([&] { (void)none.getInt("a"); }), error_of([&] { (void)none.getBool("a"); }),
        error_of([&] { (void)none.getFloat("a"); }), error_of([&] { (void)none.getDouble("a"); }),
        error_of([&] { (void)none.getString("a"); })};
    const char* const types[] = {"int", "bool", "float", "double", "string"};
    for (std::size_t i = 0; i < std::size(errors); ++i) {
        EXPECT_EQ(errors[i].what(), std::string("the required key 'a' (") +
                                        (i == 0 ? "an " : "a ") + types[i] + ") is missing");
        EXPECT_EQ(errors[i].key(), "a");
        EXPECT_EQ(errors[i].wanted(), types[i]);
        EXPECT_TRUE(errors[i].missing());
    }
}

TEST(ConfigurationErrorTest, SaysWhatIsFoundInstead) {
    const std::string longest(60, 'x');
    const std::pair<BlockConfiguration::KeyValue, std::string> cases[] = {
        {{"key", false}, "the boolean false"},
        {{"key", true}, "the boolean true"},
        {{"key", std::int64_t{1} << 40}, "the integer 1099511627776"},
        {{"key", 2.5}, "a float"},
        {{"key", longest}, "the string \"" + longest + "\""},
        {{"key", longest + 'x'}, "the string \"" + longest + "…\""},
        {{"key", {"a", "b"}}, "an array of 2 strings"}};
    for (const auto& [entry, found] : cases) {
        const BlockConfiguration config{entry};
        const auto error = error_of([&] { (void)config.getInt("key"); });
        EXPECT_EQ(error.found(), found);
        EXPECT_FALSE(error.missing());
    }
}

TEST(ConfigurationErrorTest, IsASentence) {
    const BlockConfiguration config{{"key", true}};
    EXPECT_STREQ(error_of([&] { (void)config.getInt("key"); }).what(),
                 "the key 'key' must be an int, not the boolean true");
    EXPECT_STREQ(error_of([&] { (void)config.getString("key", "x"); }).what(),
                 "the key 'key' must be a string, not the boolean true");
}

}  // namespace
