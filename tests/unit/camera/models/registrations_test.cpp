#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <string>

#include "camera/models/temperature.hpp"

namespace camera {
namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();

/// The readings of a walk, each that is signalled with a "!" after it.
template <class Registration>
std::string walk(Registration& registration, const std::string& readings) {
    std::istringstream words(readings);
    std::string signalled;
    for (std::string word; words >> word;) {
        const std::string reading = word.substr(0, word.find('!'));
        signalled += (signalled.empty() ? "" : " ") + reading;
        if (registration.update(std::stod(reading)))
            signalled += '!';
    }
    return signalled;
}

/// Readings after a registration. 36.500000000000007 is the double next to 36.5, and so on.
struct ChangeWalk {
    const char* name;
    double delta, start;
    const char* readings;
};
void PrintTo(const ChangeWalk& walk, std::ostream* out) {
    *out << walk.readings;
}

class ChangeRegistrations : public ::testing::TestWithParam<ChangeWalk> {};

TEST_P(ChangeRegistrations, SignalTheseReadings) {
    ChangeRegistration registration(GetParam().delta, GetParam().start);
    EXPECT_EQ(walk(registration, GetParam().readings), GetParam().readings);
}

INSTANTIATE_TEST_SUITE_P(
    Walk, ChangeRegistrations,
    ::testing::Values(
        ChangeWalk{"ExactlyDeltaUp", 0.5, 36.5, "36.999999999999993 37!"},
        ChangeWalk{"ExactlyDeltaDown", 0.5, 36.5, "36.000000000000007 36!"},
        ChangeWalk{"DistanceAsDoublesAre", 0.5, 31.8, "32.3"},
        ChangeWalk{"SmallChangesAddUp", 1.0, 36.5, "36.75 37 37.25 37.5! 37.25 36.75 36.5!"},
        ChangeWalk{"SmallExcursionIsForgotten", 1.0, 36.5, "37.25 36.5 35.75"},
        ChangeWalk{"DeltaOfZero", 0.0, 36.5, "36.5 36.500000000000007! 36.5! 36.5"},
        ChangeWalk{"DeltaOfMinusZero", -0.0, 36.5, "36.5 36.500000000000007! 36.5! 36.5"},
        ChangeWalk{"DeltaBelowZero", -1.0, 36.5, "36.5 36.500000000000007! 36.5! 36.5"},
        ChangeWalk{"DeltaOfMinusInfinity", -inf, 36.5, "36.5 36.500000000000007! 36.5! 36.5"},
        ChangeWalk{"DeltaOfNan", nan, 36.5, "36.5 36.500000000000007! 36.5! 36.5"},
        ChangeWalk{"BothZeroesAreEqual", 0.0, 0.0, "-0.0"},
        ChangeWalk{"ToAndFromNan", 10.0, 36.5, "nan! nan 36.5! 36.5"},
        ChangeWalk{"StartsFromNan", 10.0, nan, "nan 1!"},
        ChangeWalk{"InfiniteDistance", 1e300, 36.5, "inf! inf -inf! 0!"},
        ChangeWalk{"InfiniteDelta", inf, 36.5, "-1e308 -inf!"}),
    [](const auto& walk) { return walk.param.name; });

TEST(ChangeRegistration, RemembersTheReadingThatItReportedLast) {
    ChangeRegistration registration(1.0, 36.5);
    EXPECT_EQ(walk(registration, "37"), "37");
    EXPECT_EQ(registration.reported(), 36.5);
    EXPECT_EQ(walk(registration, "38"), "38!");
    EXPECT_EQ(registration.reported(), 38.0);
}

enum Direction { falling, rising };

struct LimitWalk {
    const char* name;
    double limit;
    Direction direction;
    double start;
    bool beyond;  ///< at registration
    const char* readings;
};
void PrintTo(const LimitWalk& walk, std::ostream* out) {
    *out << walk.readings;
}

class LimitRegistrations : public ::testing::TestWithParam<LimitWalk> {};

TEST_P(LimitRegistrations, SignalTheseReadings) {
    const auto& [name, limit, direction, start, beyond, readings] = GetParam();
    LimitRegistration registration(limit, direction == rising, start);
    EXPECT_EQ(registration.beyond(), beyond);
    EXPECT_EQ(walk(registration, readings), readings);
}

INSTANTIATE_TEST_SUITE_P(
    Walk, LimitRegistrations,
    ::testing::Values(
        LimitWalk{"AtTheLimitIsNotAbove", 60, rising, 50, false, "60 60.000000000000007!"},
        LimitWalk{"AtTheLimitIsDownToIt", 60, falling, 70, false, "60.000000000000007 60!"},
        LimitWalk{"StartsAbove", 60, rising, 60.5, true, "70 60 61!"},
        LimitWalk{"StartsAtALimitToRiseAbove", 60, rising, 60, false, "61!"},
        LimitWalk{"StartsAtALimitToFallTo", 60, falling, 60, true, "59 61 60!"},
        LimitWalk{"RisingOnceUntilCrossedBack", 60, rising, 50, false, "61! 62 60.5 60 60.5!"},
        LimitWalk{"FallingOnceUntilCrossedBack", 60, falling, 70, false, "59! 58 60 60.5 60!"},
        LimitWalk{"NanCrossesNothingRising", 60, rising, 50, false, "nan 61! nan 61"},
        LimitWalk{"NanCrossesNothingFalling", 60, falling, 70, false, "nan 60! nan 59"},
        LimitWalk{"StartsFromNanRising", 60, rising, nan, false, "61!"},
        LimitWalk{"StartsFromNanFalling", 60, falling, nan, false, "59!"},
        LimitWalk{"LimitOfNanRising", nan, rising, 50, false, "inf -inf 0 nan"},
        LimitWalk{"LimitOfNanFalling", nan, falling, 50, false, "inf -inf 0 nan"},
        LimitWalk{"InfiniteTemperature", 60, rising, 50, false, "inf!"},
        LimitWalk{"MinusInfiniteTemperature", 60, falling, 70, false, "-inf!"},
        LimitWalk{"InfiniteLimitToRiseAbove", inf, rising, 50, false, "inf"},
        LimitWalk{"InfiniteLimitToFallTo", inf, falling, 50, true, "0"}),
    [](const auto& walk) { return walk.param.name; });

}  // namespace
}  // namespace camera
