#include "camera/scenario/condition.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>

namespace camera {
namespace {

using common::Json;

Condition is(const char* json) {
    return {.is = common::share(Json::parse(json))};
}
Condition contains(const char* json) {
    return {.contains = common::share(Json::parse(json))};
}

TEST(ConditionTest, OfEqualityComparesNumbersByValue) {
    EXPECT_TRUE(is("3").met(3.0));
    EXPECT_TRUE(is("false").met(false));
    EXPECT_FALSE(is("false").met(0));
    EXPECT_TRUE(is("\"nan\"").met(common::json_number(NAN)));
    EXPECT_TRUE(is("36.6").met(static_cast<double>(36.6F))) << "a float on the bus";
    EXPECT_FALSE(is("36.6").met(36.6000001));
    EXPECT_EQ(is("36.5").text(), "36.5");
}

TEST(ConditionTest, OfAPartLooksIntoTextsAndLists) {
    EXPECT_TRUE(contains("\"ok\"").met("not ok at all"));
    EXPECT_FALSE(contains("\"ko\"").met("not ok at all"));
    EXPECT_TRUE(contains("\"a\"").met(Json::parse(R"(["b", "a"])")));
    EXPECT_FALSE(contains("\"a\"").met(Json::parse(R"(["ab"])")));
    EXPECT_FALSE(contains("1").met(11));
}

TEST(ConditionTest, OfARangeTakesNumbersOnly) {
    const Condition above{.above = 70.0};
    EXPECT_TRUE(above.met(70.5));
    EXPECT_FALSE(above.met(70.0));
    EXPECT_TRUE(above.met("inf"));
    EXPECT_FALSE(above.met("nan"));
    EXPECT_FALSE(above.met("hot"));
    EXPECT_FALSE(above.met(nullptr));
    const Condition between{.from = 10.0, .to = 20.0};
    EXPECT_TRUE(between.met(10));
    EXPECT_TRUE(between.met(20));
    EXPECT_FALSE(between.met(20.1));
    EXPECT_EQ(between.text(), "between 10.0 and 20.0");
    EXPECT_EQ((Condition{.above = 1.0, .below = 2.0}.text()), "above 1.0 and below 2.0");
}

}  // namespace
}  // namespace camera
