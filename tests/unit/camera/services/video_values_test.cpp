// What can be set and seen of the camera's video, by name.
#include "tests/unit/camera/camera_fixture.hpp"

namespace camera {
namespace {

using VideoValues = CameraTest;

TEST_F(VideoValues, WdrIsTurnedOnAndOffForEachChannel) {
    camera_.set("wdr.1", "on");
    EXPECT_EQ(camera_.value("wdr.0"), "off");
    EXPECT_EQ(camera_.value("wdr.1"), "on");
    camera_.set("wdr.1", "off");
    EXPECT_EQ(camera_.value("wdr.1"), "off");
    EXPECT_EQ(told(), "controls: WDR of channel 1 is on\ncontrols: WDR of channel 1 is off\n");
}

TEST_F(VideoValues, WdrIsOnOrOffAndNothingElse) {
    for (const std::string text : {"", "On", "true", "1"}) {
        const std::string sentence =
            "'" + text +
            "' is not a valid value of 'ImageSource.I0.Sensor.WDR': expected on or off";
        EXPECT_EQ(refusal([&] { camera_.set("wdr.0", text); }), sentence);
        EXPECT_EQ(refusal([&] { (void)camera_.check_state("wdr.0", text); }), sentence);
    }
    EXPECT_EQ(camera_.value("wdr.0"), "off");
    EXPECT_EQ(told(), "");
}

TEST_F(VideoValues, ThereAreAsManyAsChannels) {
    EXPECT_EQ(refusal([&] { camera_.set("wdr.2", "on"); }),
              "unknown value 'wdr.2'; did you mean 'wdr.0'?");
    Configuration one = default_configuration();
    one.video = {1, "masked"};
    const Camera camera(*event_, event_log_, one, [] {});
    EXPECT_EQ(common::json_line(camera.show()["values"]),
              R"({"temperature.main":36.5,"temperature.lens":28.0,"temperature.housing":21.5,)"
              R"("power.budget":20.0,"power.left":20.0,"power.received":25.0,"wdr.0":"off",)"
              R"("overlay.text":"","video.0":0,"unit":"masked"})");
}

TEST_F(VideoValues, TheTextAndTheReadinessAreOnlySeen) {
    EXPECT_EQ(refusal([&] { camera_.set("overlay.text", "Hot"); }),
              "'overlay.text' cannot be set: it shows the text that clients set");
    EXPECT_EQ(refusal([&] { (void)camera_.check_value("video.1", "1"); }),
              "'video.1' cannot be set: it counts calls of SignalVideoReady");
    EXPECT_EQ(camera_.check_state("overlay.text", "Hot"), "Hot");
    EXPECT_EQ(camera_.check_state("video.1", "3"), 3);
    for (const std::string text : {"-1", "1.0", "", "often"}) {
        EXPECT_EQ(refusal([&] { (void)camera_.check_state("video.1", text); }),
                  "'" + text + "' is not a valid count: expected an integer of at least 0");
    }
}

TEST_F(VideoValues, TheUnitIsInAnyState) {
    for (const std::string text : {"masked", "MASKED", "masked ", ""}) {
        camera_.set("unit", text);
        EXPECT_EQ(camera_.value("unit"), text);
    }
    EXPECT_EQ(refusal([&] { camera_.set("unit", std::string("a\0b", 3)); }),
              "the state of a unit must not contain a zero byte");
    EXPECT_EQ(told(),
              "init: video-ready.service is \"masked\"\ninit: video-ready.service is \"MASKED\"\n"
              "init: video-ready.service is \"masked \"\ninit: video-ready.service is \"\"\n");
}

TEST_F(VideoValues, NobodyCallsTheInitSystemBack) {
    EXPECT_EQ(refusal([&] { camera_.activate("init"); }), "the service 'init' cannot be activated");
}

}  // namespace
}  // namespace camera
