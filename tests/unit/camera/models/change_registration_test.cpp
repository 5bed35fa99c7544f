#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "camera/models/temperature.hpp"

namespace camera {
namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

TEST(ChangeRegistration, ReportsADistanceOfExactlyDelta) {
    ChangeRegistration up(0.5, 36.5);
    EXPECT_FALSE(up.update(std::nextafter(37.0, 0.0)));
    EXPECT_TRUE(up.update(37.0));
    EXPECT_EQ(up.reported(), 37.0);

    ChangeRegistration down(0.5, 36.5);
    EXPECT_FALSE(down.update(std::nextafter(36.0, 100.0)));
    EXPECT_TRUE(down.update(36.0));
}

TEST(ChangeRegistration, ComparesTheDistanceAsDoublesAre) {
    // 32.3 - 31.8 is 0.4999…, whatever it looks like on paper.
    EXPECT_FALSE(ChangeRegistration(0.5, 31.8).update(32.3));
}

TEST(ChangeRegistration, AddsUpSmallChangesSinceTheLastReport) {
    ChangeRegistration subscription(1.0, 36.5);
    EXPECT_FALSE(subscription.update(36.75));
    EXPECT_FALSE(subscription.update(37.0));
    EXPECT_FALSE(subscription.update(37.25));
    EXPECT_EQ(subscription.reported(), 36.5);
    EXPECT_TRUE(subscription.update(37.5));
    EXPECT_FALSE(subscription.update(37.25));
    EXPECT_FALSE(subscription.update(36.75));
    EXPECT_TRUE(subscription.update(36.5));
}

TEST(ChangeRegistration, ForgetsAnExcursionThatWasTooSmall) {
    ChangeRegistration subscription(1.0, 36.5);
    EXPECT_FALSE(subscription.update(37.25));
    EXPECT_FALSE(subscription.update(36.5));
    EXPECT_FALSE(subscription.update(35.75));
}

TEST(ChangeRegistration, ReportsEveryChangeWithADeltaThatSaysNothing) {
    for (const double delta : {0.0, -0.0, -1.0, -infinity, nan}) {
        ChangeRegistration subscription(delta, 36.5);
        EXPECT_FALSE(subscription.update(36.5)) << delta;
        EXPECT_TRUE(subscription.update(std::nextafter(36.5, 37.0))) << delta;
        EXPECT_TRUE(subscription.update(36.5)) << delta;
        EXPECT_FALSE(subscription.update(36.5)) << delta;
    }
}

TEST(ChangeRegistration, TakesBothZeroesForTheSameTemperature) {
    EXPECT_FALSE(ChangeRegistration(0.0, 0.0).update(-0.0));
}

TEST(ChangeRegistration, ReportsAChangeToAndFromNan) {
    ChangeRegistration subscription(10.0, 36.5);
    EXPECT_TRUE(subscription.update(nan));
    EXPECT_FALSE(subscription.update(nan));
    EXPECT_TRUE(subscription.update(36.5));
    EXPECT_FALSE(subscription.update(36.5));
}

TEST(ChangeRegistration, StartsFromNanWhereTheSensorShowsIt) {
    ChangeRegistration subscription(10.0, nan);
    EXPECT_FALSE(subscription.update(nan));
    EXPECT_TRUE(subscription.update(1.0));
}

TEST(ChangeRegistration, TakesAnInfiniteDistanceForLargeEnough) {
    ChangeRegistration subscription(1e300, 36.5);
    EXPECT_TRUE(subscription.update(infinity));
    EXPECT_FALSE(subscription.update(infinity));
    EXPECT_TRUE(subscription.update(-infinity));
    EXPECT_TRUE(subscription.update(0.0));
}

TEST(ChangeRegistration, WithAnInfiniteDeltaWaitsForAnInfiniteDistance) {
    ChangeRegistration subscription(infinity, 36.5);
    EXPECT_FALSE(subscription.update(-1e308));
    EXPECT_TRUE(subscription.update(-infinity));
}

}  // namespace
}  // namespace camera
