#include "common/text/number_text.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>
#include "common/text/json.hpp"

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

TEST(AppendNumber, WritesWhatAJsonLineHolds) {
    for (const double value :
         {0.0, -0.0, 1.0, -7.0, 36.5, 0.1, 1.0 / 3.0, 1e-4, 9.9e-5, 1e-5, 123456789012345.0, 1e15,
          -1e20, 5e-324, 1.7976931348623157e308, static_cast<double>(0.1F)}) {
        std::string text = "x = ";
        append_number(text, value);
        EXPECT_EQ(text, "x = " + json_line(value));
    }
}

TEST(AppendNumber, IsReadAsTheSameNumber) {
    std::mt19937_64 bits(7);
    for (int i = 0; i < 20000; ++i) {
        const auto value = std::bit_cast<double>(bits());
        if (!std::isfinite(value))
            continue;
        std::string text;
        append_number(text, value);
        EXPECT_EQ(parse_number<double>(text), value) << text;
    }
}

TEST(AppendSeconds, WritesTheNumberOfSeconds) {
    std::mt19937_64 random(7);
    std::vector<std::int64_t> times = {0,       1,       99,        100,       101,
                                       999'999, 100'000, 1'000'000, 1'000'001, 12'500'000};
    for (int i = 0; i < 20000; ++i)
        times.push_back(static_cast<std::int64_t>(random() % 1'000'000'000'000 >> random() % 40));
    for (const std::int64_t time : times) {
        std::string text;
        append_seconds(text, std::chrono::microseconds(time));
        std::string number;
        append_number(number, static_cast<double>(time) / 1e6);
        EXPECT_EQ(text, number);
    }
}

TEST(AppendNumber, NamesWhatIsNoNumber) {
    std::string text;
    for (const double value : {std::nan(""), -std::nan(""), HUGE_VAL, -HUGE_VAL}) {
        append_number(text, value);
        text += ' ';
    }
    EXPECT_EQ(text, "nan nan inf -inf ");
}

}  // namespace
}  // namespace common
