#include "common/text/number_text.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

namespace common {
namespace {

TEST(ParseNumber, TakesDecimalNumbersOnly) {
    EXPECT_EQ(parse_number<double>("1.5"), 1.5);
    EXPECT_EQ(parse_number<double>("-1e3"), -1000.0);
    EXPECT_TRUE(std::isnan(*parse_number<double>("nan")));
    EXPECT_EQ(parse_number<std::int64_t>("-9223372036854775808"), INT64_MIN);
    EXPECT_EQ(parse_number<std::int64_t>("010"), 10);
    for (const char* text :
         {"", " 1", "1 ", "+1", "0x10", "0b1", "1_0", "1'0", "one", "1e999", "1\n", "1,5", "--1"}) {
        EXPECT_FALSE(parse_number<double>(text)) << text;
        EXPECT_FALSE(parse_number<std::int64_t>(text)) << text;
    }
    EXPECT_FALSE(parse_number<std::int64_t>("1.0"));
    EXPECT_FALSE(parse_number<std::int64_t>("9223372036854775808"));
    EXPECT_FALSE(parse_number<std::uint64_t>("-1"));
}

}  // namespace
}  // namespace common
