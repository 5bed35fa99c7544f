#include <gmock/gmock.h>

#include "tests/integration/blocks/video_scene.hpp"

namespace test {
namespace {

using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::Ge;
using ::testing::SizeIs;
using ::testing::StartsWith;

using VideoReadyTest = VideoScene;

const std::string signal_call = R"(client calls service: SignalVideoReady("vipd"))";
std::string setup_event(const std::string& enabled) {
    return R"({"event":"setup","block":"video","settings":{"no_video_at_startup":)" + enabled +
           "}}";
}

TEST_F(VideoReadyTest, SignalsOnceWhenItStarts) {
    open();
    start_host();
    wait_for_replies("SignalVideoReady");
    close();
    const Lines lines = traffic();
    EXPECT_EQ(std::ranges::count(lines, signal_call), 1);
    EXPECT_THAT(events(), ElementsAre(setup_event("true"), ready_event, exit_event));
    const Ended shown =
        run_program({FENWA_CAMERA_PROGRAM, "show", "--format", "json", "--bus", address()});
    EXPECT_EQ(common::Json::parse(shown.out)["values"]["video.1"], 1);
    EXPECT_EQ(common::Json::parse(shown.out)["values"]["video.0"], 0);
}

TEST_F(VideoReadyTest, StaysSilentWhereTheUnitIsMasked) {
    for (const char* state : {"masked", "masked-runtime"}) {
        open();
        camera({"set", "unit", state});
        start_host();
        wait_until_ready();
        close();
        EXPECT_EQ(std::ranges::count(traffic(), signal_call), 0) << state;
        EXPECT_THAT(events(),
                    ElementsAre(log_event(4, "video-ready.service is masked, skipping it"),
                                setup_event("false"), ready_event, exit_event));
    }
}

TEST_F(VideoReadyTest, SignalsInEveryOtherState) {
    for (const char* state : {"disabled", "static", "MASKED"}) {
        open();
        camera({"set", "unit", state});
        start_host();
        wait_for_replies("SignalVideoReady");
        close();
        EXPECT_EQ(std::ranges::count(traffic(), signal_call), 1) << state;
    }
}

TEST_F(VideoReadyTest, StaysSilentWithoutALineWhereNobodyKnowsTheUnit) {
    open({.without = {"init"}});
    start_host();
    wait_until_ready();
    close();
    EXPECT_EQ(std::ranges::count(traffic(), signal_call), 0);
    EXPECT_THAT(events(), ElementsAre(setup_event("false"), ready_event, exit_event));
}

TEST_F(VideoReadyTest, StaysSilentWhereTheStateIsUnreadable) {
    open();
    camera({"fail", "GetUnitFileState", "--malformed"});
    start_host();
    wait_until_ready();
    close();
    EXPECT_THAT(events(), ElementsAre(log_event(1,
                                                "Failed to parse status of video-ready.service: "
                                                "No such device or address"),
                                      setup_event("false"), ready_event, exit_event));
}

TEST_F(VideoReadyTest, CallsUntilItIsAnswered) {
    open();
    camera({"fail", "SignalVideoReady", "--times", "3", "--error", "com.tarlo.Broken"});
    start_host();
    wait_for_replies("SignalVideoReady", 4);
    close();
    EXPECT_EQ(std::ranges::count(traffic(), signal_call), 4);
    EXPECT_THAT(events("log"),
                AllOf(SizeIs(3), Each(log_event(2,
                                                "Failed to signal video enabled to : "
                                                "com.tarlo.Broken: A fault rule answers this "
                                                "call."))));
}

TEST_F(VideoReadyTest, CallsForAServiceThatIsAbsentUntilItComes) {
    open({.without = {"video"}});
    start_host();
    wait_for_log("Failed to signal video enabled to : ");
    camera({"start", "video"});
    wait_for_replies("SignalVideoReady");
    close();
    EXPECT_THAT(events("log"),
                Each(log_event(2,
                               "Failed to signal video enabled to : org.freedesktop.DBus.Error."
                               "ServiceUnknown: The name com.tarlo.VideoReady1 was not provided "
                               "by any .service files")));
}

TEST_F(VideoReadyTest, BringsAnAbsentServiceUpWhereCallsDo) {
    open({.activation = true, .without = {"video"}});
    start_host();
    wait_for_replies("SignalVideoReady");
    close();
    EXPECT_THAT(events("log"), ElementsAre());
}

TEST_F(VideoReadyTest, SignalsAgainWhenThePictureIsTurnedAlsoAfterEachOfTwoHundredCrashes) {
    open({.activation = true, .host_options = {"--control"}});
    start_host();
    wait_until_ready();
    wait_for_replies("SignalVideoReady");
    const common::BusPtr other = common::open_bus(address(), std::chrono::seconds(20));
    const char* const name = "com.tarlo.Fenwa.Host1";
    for (int crash = 0; crash < 200 && !HasFatalFailure(); ++crash) {
        SCOPED_TRACE(crash);
        camera({"stop", "video"});
        ASSERT_GE(
            sd_bus_call_method(other.get(), name, "/com/tarlo/Fenwa/Host1", name, "Write", nullptr,
                               nullptr, "sv", "video.rotation_vip1_in", "i", 90 * (crash % 4)),
            0);
        wait_for_replies("SignalVideoReady");
    }
    close();
    EXPECT_THAT(events("log"), ElementsAre());
    EXPECT_EQ(std::ranges::count(traffic(), signal_call), 201);
}

TEST_F(VideoReadyTest, NeverSucceedsForANegativeChannel) {
    open({.graph = "[blocks.video]\ntype = \"VideoReady\"\nchannel = -1\n"});
    start_host();
    wait_for_log("Failed to signal video enabled to : ");
    close();
    EXPECT_EQ(ended().code, 0);
    EXPECT_EQ(std::ranges::count(traffic(), signal_call), 0) << "sd-bus sends no such path";
    EXPECT_THAT(events("log"), Each(StartsWith(R"({"event":"log","level":2,"message":"Failed to )"
                                               R"(signal video enabled to : )")));
}

}  // namespace
}  // namespace test
