#include "host/plugin/type_data.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace host {
namespace {

TEST(Range, HoldsItsBoundsOrExcludesThem) {
    const Range closed{1.0, {}, 4.0, {}};
    EXPECT_FALSE(closed.contains(0.5));
    EXPECT_TRUE(closed.contains(1.0));
    EXPECT_TRUE(closed.contains(4.0));
    EXPECT_FALSE(closed.contains(4.5));
    const Range open{{}, 1.0, {}, 4.0};
    EXPECT_FALSE(open.contains(1.0));
    EXPECT_TRUE(open.contains(1.5));
    EXPECT_TRUE(open.contains(3.5));
    EXPECT_FALSE(open.contains(4.0));
}

TEST(Range, WithoutABoundHoldsEveryNumber) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(Range{}.contains(-std::numeric_limits<double>::infinity()));
    EXPECT_TRUE(Range{}.contains(nan));
    const Range below{{}, {}, 4.0, {}};
    EXPECT_FALSE(below.contains(nan));
}

}  // namespace
}  // namespace host
