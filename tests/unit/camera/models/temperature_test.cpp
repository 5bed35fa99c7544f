#include "camera/models/temperature.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace camera {

// Notices are compared whole.
static bool operator==(const TemperatureNotice& a, const TemperatureNotice& b) {
    return a.kind == b.kind && a.id == b.id && a.temperature == b.temperature;
}
static void PrintTo(const TemperatureNotice& notice, std::ostream* out) {
    *out << (notice.kind == TemperatureNotice::Kind::change ? "change " : "limit ") << notice.id
         << " at " << notice.temperature;
}

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Kind = TemperatureNotice::Kind;

TemperatureModel two_sensors() {
    return TemperatureModel({{"main", 3, 36.5}, {"lens", -4, 28.0}});
}

TEST(TemperatureModel, FindsSensorsByNameAndById) {
    const TemperatureModel model = two_sensors();
    ASSERT_NE(model.by_name("lens"), nullptr);
    EXPECT_EQ(model.by_name("lens")->id, -4);
    ASSERT_NE(model.by_id(3), nullptr);
    EXPECT_EQ(model.by_id(3)->name, "main");
    EXPECT_EQ(model.by_name("Main"), nullptr);
    EXPECT_EQ(model.by_name(""), nullptr);
    EXPECT_EQ(model.by_id(4), nullptr);
}

TEST(TemperatureModel, RefusesSensorsThatItDoesNotHave) {
    TemperatureModel model = two_sensors();
    EXPECT_THROW(model.set("housing", 1.0), std::out_of_range);
    EXPECT_THROW(model.register_change(":1.1", 4, 0.5), std::out_of_range);
    EXPECT_THROW(model.register_limit(":1.1", 4, 60.0, true), std::out_of_range);
    EXPECT_THAT(model.registrations(), IsEmpty());
}

TEST(TemperatureModel, NoticesComeInTheOrderOfRegistrationAndForTheirSensorOnly) {
    TemperatureModel model = two_sensors();
    const std::int32_t limit = model.register_limit(":1.1", 3, 40.0, true).first;
    const std::int32_t other = model.register_change(":1.1", -4, 0.0);
    const std::int32_t fine = model.register_change(":1.2", 3, 0.5);
    const std::int32_t coarse = model.register_change(":1.2", 3, 50.0);

    EXPECT_THAT(model.set("main", 41.0), ElementsAre(TemperatureNotice{Kind::limit, limit, 41.0},
                                                     TemperatureNotice{Kind::change, fine, 41.0}));
    EXPECT_EQ(model.by_name("main")->temperature, 41.0);
    EXPECT_EQ(model.by_name("lens")->temperature, 28.0);
    EXPECT_THAT(model.set("lens", 28.25),
                ElementsAre(TemperatureNotice{Kind::change, other, 28.25}));
    EXPECT_THAT(model.set("main", 100.0),
                ElementsAre(TemperatureNotice{Kind::change, fine, 100.0},
                            TemperatureNotice{Kind::change, coarse, 100.0}));
}

TEST(TemperatureModel, TakesTheTemperatureAtRegistrationForReported) {
    TemperatureModel model = two_sensors();
    model.set("main", 50.0);
    model.register_change(":1.1", 3, 1.0);
    EXPECT_THAT(model.set("main", 50.5), IsEmpty());
}

TEST(TemperatureModel, SaysWhetherALimitIsCrossedAlready) {
    TemperatureModel model = two_sensors();
    EXPECT_FALSE(model.register_limit(":1.1", 3, 36.5, true).second);
    EXPECT_TRUE(model.register_limit(":1.1", 3, 36.5, false).second);
    EXPECT_TRUE(model.register_limit(":1.1", 3, 36.0, true).second);
}

TEST(TemperatureModel, TwoRegistrationsOfOneClientAreTwo) {
    TemperatureModel model = two_sensors();
    const std::int32_t first = model.register_change(":1.1", 3, 1.0);
    const std::int32_t second = model.register_change(":1.1", 3, 1.0);
    EXPECT_THAT(model.set("main", 40.0),
                ElementsAre(TemperatureNotice{Kind::change, first, 40.0},
                            TemperatureNotice{Kind::change, second, 40.0}));
}

TEST(TemperatureModel, DropsTheRegistrationsOfAClientThatLeaves) {
    TemperatureModel model = two_sensors();
    model.register_change(":1.1", 3, 0.0);
    const std::int32_t stays = model.register_change(":1.11", 3, 0.0);
    model.register_limit(":1.1", 3, 40.0, true);
    EXPECT_EQ(model.drop_owner(":1.2"), 0U);
    EXPECT_EQ(model.drop_owner(":1.1"), 2U);
    EXPECT_EQ(model.drop_owner(":1.1"), 0U);
    EXPECT_THAT(model.set("main", 41.0), ElementsAre(TemperatureNotice{Kind::change, stays, 41.0}));
}

TEST(TemperatureModel, ForgetsRegistrationsButNotTemperatures) {
    TemperatureModel model = two_sensors();
    model.register_change(":1.1", 3, 0.0);
    model.set("main", 50.0);
    model.drop_all();
    EXPECT_THAT(model.registrations(), IsEmpty());
    EXPECT_EQ(model.by_name("main")->temperature, 50.0);
    EXPECT_THAT(model.set("main", 60.0), IsEmpty());
}

TEST(TemperatureModel, NeverGivesAnIdTwice) {
    TemperatureModel model = two_sensors();
    std::int32_t last = 0;
    for (int round = 0; round < 5; ++round) {
        for (int i = 0; i < 3; ++i) {
            const std::int32_t change = model.register_change(":1.1", 3, 1.0);
            EXPECT_GT(change, last);
            last = model.register_limit(":1.2", 3, 60.0, true).first;
            EXPECT_GT(last, change);
        }
        model.drop_owner(":1.2");
        if (round % 2 == 0)
            model.drop_all();
    }
}

TEST(TemperatureModel, GivesNoIdAwayForARegistrationThatItRefuses) {
    TemperatureModel model = two_sensors();
    const std::int32_t first = model.register_change(":1.1", 3, 1.0);
    EXPECT_THROW(model.register_change(":1.1", 99, 1.0), std::out_of_range);
    EXPECT_EQ(model.register_change(":1.1", 3, 1.0), first + 1);
}

TEST(TemperatureModel, RefusesMoreRegistrationsThanItHasRoomForUntilSomeGo) {
    TemperatureModel model = two_sensors();
    model.register_change(":1.2", 3, 1.0);
    for (std::size_t i = 1; i < TemperatureModel::max_registrations; ++i)
        model.register_change(":1.1", 3, 1.0);
    EXPECT_THROW(model.register_change(":1.3", 3, 1.0), std::length_error);
    EXPECT_THROW(model.register_limit(":1.3", 3, 60.0, true), std::length_error);
    EXPECT_EQ(model.registrations().size(), TemperatureModel::max_registrations);
    EXPECT_EQ(model.drop_owner(":1.2"), 1U);
    EXPECT_NO_THROW(model.register_change(":1.3", 3, 1.0));
}

}  // namespace
}  // namespace camera
