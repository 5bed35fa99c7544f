// Scenarios about video: buttons, texts, readiness and the unit.
#include "tests/integration/camera/scenario_scene.hpp"
#include "tests/integration/camera/wdr_document.hpp"

namespace test {
namespace {

using VideoScenario = ScenarioScene;

TEST_F(VideoScenario, PressesAButtonThatAClientHasAdded) {
    begin(R"([[steps]]
expect = {call = "AddFeatures", within = 20}
[[steps]]
press = "activateWDR1"
expect = {state = "wdr.0", is = "on"}
set = {wdr.1 = "on"}
[[steps]]
expect = {call = "controls.RemoveFeatures", within = 20}
)");
    BusClient client(address_, camera::onscreen_controls);
    client.send("AddFeatures", "sssa{sv}", "en-us", "English", wdr_document(1).c_str(), 0);
    EXPECT_EQ(client.wait_for(1).back(), "AddFeatures answers ()");
    ASSERT_TRUE(camera_->wait_for_text(R"("name":"wdr.1","value":"on")"));
    EXPECT_EQ(client.call("RemoveFeatures", "ssa{sv}", "WDR1", "en-us", 0), "()");
    const Ended ended = end();
    EXPECT_EQ(ended.code, 0) << ended.err;
    EXPECT_EQ(with("\"met\":true", lines(ended.out)).size(), 3U);
}

TEST_F(VideoScenario, WaitsForTextsThatComeAndGo) {
    begin(R"([[steps]]
expect = {state = "overlay.text", is = "Too hot", within = 20}
[[steps]]
expect = {state = "overlay.text", is = "", within = 20}
)");
    BusClient client(address_, camera::text_overlay);
    EXPECT_EQ(client.call("Set", "su", "Too hot", 1U), "()");
    const Ended ended = end();
    EXPECT_EQ(ended.code, 0) << ended.err;
    EXPECT_EQ(with("\"expired\"", lines(ended.out)).size(), 1U);
}

TEST_F(VideoScenario, WaitsForChannelsAndSetsTheUnit) {
    begin(R"([[steps]]
set = {unit = "masked"}
expect = {state = "video.1", is = 2, within = 20}
[[steps]]
expect = {state = "unit", is = "masked"}
)");
    BusClient init(address_, camera::init_manager);
    const std::string path = std::string(camera::video_ready.path) + "/1";
    BusClient client(address_,
                     {camera::video_ready.name, path.c_str(), camera::video_ready.interface});
    EXPECT_EQ(client.call("SignalVideoReady", "s", "vipd"), "()");
    EXPECT_EQ(init.call("GetUnitFileState", "s", "video-ready.service"), "(\"masked\")");
    EXPECT_EQ(client.call("SignalVideoReady", "s", "vipd"), "()");
    const Ended ended = end();
    EXPECT_EQ(ended.code, 0) << ended.err;
}

TEST_F(VideoScenario, WhatCannotBeIsAMistakeOfTheFile) {
    const Ended ended = play(R"([[steps]]
set = {"wdr.0" = true, "overlay.text" = "x", "video.0" = 1, "wdr.2" = "on"}
expect = {state = "video.0", is = -1}
)");
    EXPECT_EQ(ended.code, 78);
    EXPECT_EQ(ended.out, "");
    const std::string set =
        "set = {\"wdr.0\" = true, \"overlay.text\" = \"x\", \"video.0\" = 1, \"wdr.2\" = "
        "\"on\"}\n";
    const auto below = [&set](std::size_t column) {
        return set + std::string(column - 1, ' ') + "^\n";
    };
    EXPECT_EQ(
        plain(ended.err),
        "s.toml:2:8: error: 'true' is not a valid value of 'ImageSource.I0.Sensor.WDR': expected "
        "on or off\n" +
            below(8) +
            "s.toml:2:24: error: 'overlay.text' cannot be set: it shows the text that clients "
            "set\n" +
            below(24) +
            "s.toml:2:46: error: 'video.0' cannot be set: it counts calls of SignalVideoReady\n" +
            below(46) + "s.toml:2:61: error: unknown value 'wdr.2'\n" + below(61) +
            "help: did you mean 'wdr.0'?\n"
            "s.toml:3:19: error: '-1' is not a valid count: expected an integer of at least "
            "0\nexpect = {state = \"video.0\", is = -1}\n" +
            std::string(18, ' ') + "^\ns.toml: 5 errors\n");
}

}  // namespace
}  // namespace test
