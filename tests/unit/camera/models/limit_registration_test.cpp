#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "camera/models/temperature.hpp"

namespace camera {
namespace {

constexpr bool rising = true;
constexpr bool falling = false;
constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

TEST(LimitRegistration, ExactlyAtTheLimitIsNotAboveIt) {
    LimitRegistration subscription(60.0, rising, 50.0);
    EXPECT_FALSE(subscription.update(60.0));
    EXPECT_FALSE(subscription.beyond());
    EXPECT_TRUE(subscription.update(std::nextafter(60.0, 61.0)));
    EXPECT_TRUE(subscription.beyond());
}

TEST(LimitRegistration, ExactlyAtTheLimitIsDownToIt) {
    LimitRegistration subscription(60.0, falling, 70.0);
    EXPECT_FALSE(subscription.update(std::nextafter(60.0, 61.0)));
    EXPECT_FALSE(subscription.beyond());
    EXPECT_TRUE(subscription.update(60.0));
    EXPECT_TRUE(subscription.beyond());
}

TEST(LimitRegistration, KnowsWhatWasCrossedAtRegistration) {
    EXPECT_TRUE(LimitRegistration(60.0, rising, 60.5).beyond());
    EXPECT_FALSE(LimitRegistration(60.0, rising, 60.0).beyond());
    EXPECT_FALSE(LimitRegistration(60.0, rising, 59.5).beyond());
    EXPECT_FALSE(LimitRegistration(60.0, falling, 60.5).beyond());
    EXPECT_TRUE(LimitRegistration(60.0, falling, 60.0).beyond());
    EXPECT_TRUE(LimitRegistration(60.0, falling, 59.5).beyond());
}

TEST(LimitRegistration, IsNotSignalledForACrossingBeforeRegistration) {
    LimitRegistration subscription(60.0, rising, 65.0);
    EXPECT_FALSE(subscription.update(70.0));
    EXPECT_FALSE(subscription.update(60.0));
    EXPECT_TRUE(subscription.update(61.0));
}

TEST(LimitRegistration, RisingIsSignalledOnceAndAgainOnlyAfterCrossingBack) {
    LimitRegistration subscription(60.0, rising, 50.0);
    EXPECT_TRUE(subscription.update(61.0));
    EXPECT_FALSE(subscription.update(62.0));
    EXPECT_FALSE(subscription.update(60.5));
    EXPECT_FALSE(subscription.update(60.0));
    EXPECT_TRUE(subscription.update(60.5));
}

TEST(LimitRegistration, FallingIsSignalledOnceAndAgainOnlyAfterCrossingBack) {
    LimitRegistration subscription(60.0, falling, 70.0);
    EXPECT_TRUE(subscription.update(59.0));
    EXPECT_FALSE(subscription.update(58.0));
    EXPECT_FALSE(subscription.update(60.0));
    EXPECT_FALSE(subscription.update(60.5));
    EXPECT_TRUE(subscription.update(60.0));
}

TEST(LimitRegistration, NanCrossesNothingAndLeavesItAsItWas) {
    LimitRegistration below(60.0, rising, 50.0);
    EXPECT_FALSE(below.update(nan));
    EXPECT_FALSE(below.beyond());
    EXPECT_TRUE(below.update(61.0));
    EXPECT_FALSE(below.update(nan));
    EXPECT_TRUE(below.beyond());
    EXPECT_FALSE(below.update(61.0));

    LimitRegistration above(60.0, falling, 70.0);
    EXPECT_FALSE(above.update(nan));
    EXPECT_TRUE(above.update(60.0));
}

TEST(LimitRegistration, StartsOnNoSideWhereTheSensorShowsNan) {
    EXPECT_FALSE(LimitRegistration(60.0, rising, nan).beyond());
    EXPECT_FALSE(LimitRegistration(60.0, falling, nan).beyond());
    EXPECT_TRUE(LimitRegistration(60.0, rising, nan).update(61.0));
    EXPECT_TRUE(LimitRegistration(60.0, falling, nan).update(59.0));
}

TEST(LimitRegistration, ALimitOfNanIsNeverCrossed) {
    for (const bool direction : {rising, falling}) {
        LimitRegistration subscription(nan, direction, 50.0);
        EXPECT_FALSE(subscription.beyond());
        for (const double temperature : {infinity, -infinity, 0.0, nan})
            EXPECT_FALSE(subscription.update(temperature));
    }
}

TEST(LimitRegistration, InfiniteTemperaturesAndLimitsAreComparedAsNumbers) {
    EXPECT_TRUE(LimitRegistration(60.0, rising, 50.0).update(infinity));
    EXPECT_TRUE(LimitRegistration(60.0, falling, 70.0).update(-infinity));
    EXPECT_FALSE(LimitRegistration(infinity, rising, 50.0).update(infinity));
    EXPECT_TRUE(LimitRegistration(infinity, falling, 50.0).beyond());
}

}  // namespace
}  // namespace camera
