#include "common/text/json.hpp"
#include "tests/support/json_printing.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

namespace common {
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

TEST(JsonText, NumbersAreReadExactlyOrNotAtAll) {
    constexpr auto largest = std::numeric_limits<std::uint64_t>::max();
    EXPECT_EQ(number_from_json<std::uint64_t>(largest), largest);
    EXPECT_EQ(number_from_json<int>(std::numeric_limits<int>::min()),
              std::numeric_limits<int>::min());
    EXPECT_EQ(number_from_json<float>(json_number(36.6F)), 36.6F);
    EXPECT_EQ(number_from_json<float>(json_number(std::numeric_limits<float>::denorm_min())),
              std::numeric_limits<float>::denorm_min());
    EXPECT_EQ(number_from_json<double>(3), 3.0);
    EXPECT_EQ(number_from_json<double>("-inf"), -std::numeric_limits<double>::infinity());
    EXPECT_THROW((void)number_from_json<std::int64_t>(largest), JsonError);
    EXPECT_THROW((void)number_from_json<std::int64_t>(5.555e+38), JsonError);
    EXPECT_THROW((void)number_from_json<int>(2.5), JsonError);
    EXPECT_THROW((void)number_from_json<int>("two"), JsonError);
    EXPECT_THROW((void)number_from_json<int>(nullptr), JsonError);
    EXPECT_THROW((void)number_from_json<double>(Json::array({1})), JsonError);
}

std::string mistake(const std::string& text) {
    try {
        (void)parse_json(text, "the answer");
    } catch (const JsonError& error) {
        return error.what();
    }
    return "no mistake";
}

TEST(JsonText, OfAStrangerIsParsed) {
    EXPECT_EQ(json_line(parse_json(R"( {"b":[1,{"a":null}],"a":"x"} )", "it")),
              R"({"b":[1,{"a":null}],"a":"x"})");
}

TEST(JsonText, OfAStrangerThatIsNoneIsToldWithItsByte) {
    EXPECT_EQ(mistake(R"({"name":"x",})"),
              "the answer is not JSON, see byte 13: syntax error while parsing object key - "
              "unexpected '}'; expected string literal");
    EXPECT_EQ(mistake("[1] 2").substr(0, 36), "the answer is not JSON, see byte 5: ");
    EXPECT_EQ(mistake("").substr(0, 36), "the answer is not JSON, see byte 1: ");
}

TEST(JsonText, OfAStrangerIsNestedOnlySoDeep) {
    const auto nested = [](std::size_t depth) {
        return std::string(depth, '[') + std::string(depth, ']');
    };
    const auto objects = [](std::size_t depth) {
        std::string text = "0";
        while (depth-- > 0)
            text = R"({"a":)" + text + '}';
        return text;
    };
    const std::string too_deep = "the answer is nested deeper than 64 arrays and objects";
    EXPECT_EQ(mistake(nested(64)), "no mistake");
    EXPECT_EQ(mistake(nested(65)), too_deep);
    EXPECT_EQ(mistake(objects(64)), "no mistake");
    EXPECT_EQ(mistake(objects(65)), too_deep);
    EXPECT_EQ(mistake(std::string(1000000, '[')), too_deep);
}

TEST(JsonText, OfAStrangerMayHoldANumberThatNobodyCanStore) {
    EXPECT_EQ(mistake("[1e999]"),
              "the answer holds a number out of range: number overflow parsing '1e999'");
    EXPECT_LT(mistake(std::string(100000, '9')).size(), 300U) << "it is not repeated as a whole";
    EXPECT_LT(mistake('"' + std::string(100000, 'x')).size(), 300U);
}

}  // namespace
}  // namespace common
