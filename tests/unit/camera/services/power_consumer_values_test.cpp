// What can be set and seen of the camera's power, by name.
#include "tests/unit/camera/camera_fixture.hpp"

namespace camera {
namespace {

using PowerValues = CameraTest;

TEST_F(PowerValues, BudgetAndReceivedPowerAreSetByTheirServicesUnderOneGroup) {
    camera_.set("power.budget", "12.5");
    camera_.set("power.received", "nan");
    EXPECT_EQ(camera_.value("power.budget"), 12.5);
    EXPECT_EQ(camera_.value("power.left"), 12.5);
    EXPECT_EQ(camera_.value("power.received"), "nan");
    EXPECT_EQ(
        told(),
        "power-consumer: the power budget is 12.5\npower-status: the power received is nan\n");
}

TEST_F(PowerValues, ABudgetIsFiniteAndNotNegative) {
    for (const std::string text : {"-0.5", "inf", "nan", "much", "", "1 W"}) {
        EXPECT_EQ(refusal([&] { camera_.set("power.budget", text); }),
                  "'" + text + "' is not a valid power: expected a finite number of at least 0");
    }
    EXPECT_EQ(camera_.value("power.budget"), 20.0);
    camera_.set("power.budget", "0");
    EXPECT_EQ(camera_.value("power.budget"), 0.0);
}

TEST_F(PowerValues, TheReceivedPowerIsAnyNumber) {
    for (const std::string text : {"-inf", "inf", "nan"}) {
        camera_.set("power.received", text);
        EXPECT_EQ(camera_.value("power.received"), text);
    }
    EXPECT_EQ(refusal([&] { camera_.set("power.received", "much"); }),
              "'much' is not a valid power: expected a number, nan, inf or -inf");
}

TEST_F(PowerValues, SharesAndWhatIsLeftAreOnlySeen) {
    for (const std::string name : {"power.share.vipd0", "power.left"}) {
        const std::string sentence =
            "'" + name + "' cannot be set: it follows from the budget and the requests";
        EXPECT_EQ(refusal([&] { camera_.set(name, "1"); }), sentence);
        EXPECT_EQ(refusal([&] { (void)camera_.check_value(name, "1"); }), sentence);
        EXPECT_EQ(camera_.check_state(name, "1"), 1.0);
    }
    EXPECT_EQ(told(), "");
}

TEST_F(PowerValues, AConsumerThatIsNotThereHasNone) {
    EXPECT_EQ(camera_.value("power.share.vipd0"), "none");
    EXPECT_EQ(camera_.check_state("power.share.vipd0", "none"), "none");
    EXPECT_EQ(refusal([&] { (void)camera_.check_state("power.left", "none"); }),
              "'none' is not a valid power: expected a finite number of at least 0");
}

TEST_F(PowerValues, AnUnknownOneGetsTheNearest) {
    EXPECT_EQ(refusal([&] { camera_.set("power.recieved", "1"); }),
              "unknown value 'power.recieved'; did you mean 'power.received'?");
    EXPECT_EQ(refusal([&] { camera_.set("power-consumer.budget", "1"); }),
              "unknown value 'power-consumer.budget'");
}

}  // namespace
}  // namespace camera
