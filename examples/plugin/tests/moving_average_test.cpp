#include "blocks/moving_average.hpp"

#include <gtest/gtest.h>
#include <fenwa/testkit/testkit.hpp>
#include <vector>

namespace {

using Driver = Fenwa::testkit::BlockDriver<blocks::MovingAverage>;

/// What the block publishes for each of these values.
std::vector<double> means_of(Driver& block, const std::vector<double>& values) {
    std::vector<double> means;
    for (const double value : values) {
        block.feed("in", value);
        EXPECT_TRUE(block.run());
        means.push_back(block.value<double>("out"));
    }
    return means;
}

TEST(MovingAverageTest, IsTheMeanOfTheLastValues) {
    Driver block({{"samples", 2}});
    EXPECT_EQ(means_of(block, {1, 3, 5, 5}), (std::vector<double>{1, 2, 4, 5}));
}

TEST(MovingAverageTest, TakesTenSamplesUnlessToldOtherwise) {
    Driver block;
    EXPECT_EQ(means_of(block, {0, 0, 0, 0, 0, 0, 0, 0, 0, 10, 10}).back(), 2);
}

TEST(MovingAverageTest, KeepsItsLatestValuesWhenItsSettingChanges) {
    Driver block({{"samples", 3}});
    (void)means_of(block, {1, 3, 5});
    block.reconfigure({{"samples", 2}});
    EXPECT_EQ(means_of(block, {7}), (std::vector<double>{6}));
}

TEST(MovingAverageTest, RefusesANumberOfSamplesThatIsOutOfRange) {
    for (const int samples : {0, -1, 1001}) {
        const Fenwa::BlockConfiguration wrong{{"samples", samples}};
        EXPECT_THROW(Driver{wrong}, Fenwa::ConfigurationError) << samples;
    }
    Driver block({{"samples", 1}});
    EXPECT_THROW(block.reconfigure({{"samples", 1001}}), Fenwa::ConfigurationError);
    EXPECT_EQ(means_of(block, {1, 2}), (std::vector<double>{1, 2})) << "nothing has changed";
}

}  // namespace
