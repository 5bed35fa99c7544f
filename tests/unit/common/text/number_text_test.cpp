#include "common/text/number_text.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>

#include "common/cli/command_line.hpp"

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

TEST(WholeNumber, OfAnOptionIsDecimal) {
    std::string text = "010";
    EXPECT_EQ(whole_number(text), "");
    EXPECT_EQ(text, "10") << "CLI11 takes a 0 in front for the sign of an octal number";
    for (std::string wrong : {"0x10", " 1", "1.5", ""})
        EXPECT_EQ(whole_number(wrong),
                  "'" + wrong + "' is not a whole number of at most 64 bits, in decimal digits");
}

TEST(DecimalNumber, OfAnOptionIsDecimal) {
    for (std::string right : {"0.5", "1", "1e-3"})
        EXPECT_EQ(decimal_number(right), "");
    for (std::string wrong : {"0x1", " 1", "half"})
        EXPECT_EQ(decimal_number(wrong), "'" + wrong + "' is not a number in decimal digits");
}

}  // namespace
}  // namespace common
