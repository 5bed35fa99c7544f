#include "common/json_text.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace tool {
namespace {

TEST(JsonText, NumbersAreNumbersAndTheRestStrings) {
    EXPECT_EQ(json_line(json_number(36.6)), "36.6");
    EXPECT_EQ(json_line(json_number(1.0)), "1.0");
    EXPECT_EQ(json_line(json_number(-0.0)), "-0.0");
    EXPECT_EQ(json_line(json_number(36.6F)), "36.599998474121094");
    EXPECT_EQ(json_line(json_number(std::numeric_limits<double>::max())),
              "1.7976931348623157e+308");
    EXPECT_EQ(json_line(json_number(std::numeric_limits<double>::quiet_NaN())), "\"nan\"");
    EXPECT_EQ(json_line(json_number(-std::numeric_limits<double>::quiet_NaN())), "\"nan\"");
    EXPECT_EQ(json_line(json_number(std::numeric_limits<double>::infinity())), "\"inf\"");
    EXPECT_EQ(json_line(json_number(-std::numeric_limits<double>::infinity())), "\"-inf\"");
}

TEST(JsonText, MembersKeepTheirOrder) {
    Json object;
    object["zeta"] = 1;
    object["alpha"] = 2;
    EXPECT_EQ(json_line(object), R"({"zeta":1,"alpha":2})");
}

TEST(JsonText, EveryTextIsOneLine) {
    EXPECT_EQ(json_line("two\nlines\r\t\"\\\x01"), R"("two\nlines\r\t\"\\\u0001")");
    EXPECT_EQ(json_line("ü ☂"), "\"ü ☂\"");
    EXPECT_EQ(json_line("\xFF\xC3"), "\"\xEF\xBF\xBD\xEF\xBF\xBD\"");
}

}  // namespace
}  // namespace tool
