#include "tests/integration/blocks/video_scene.hpp"

#include <nlohmann/json.hpp>

namespace test {
namespace {

class OverlayTest : public OverlayScene {
  protected:
    /// Starts the host, opening the scene before, and waits until it knows that the text is set.
    void start_set(Setting setting) {
        start(std::move(setting));
        wait_for_replies("Set");
        settle();
    }
    void start_set() { start_set(Setting{}); }
};

Lines sets(const std::string& duration) {
    return {"client calls service: Set(\"Hello\", " + duration + ")",
            "service replies to client: ()"};
}
const Lines unsets{R"(client calls service: Unset("Hello"))", "service replies to client: ()"};
const std::string not_unset = "Could not unset prioritized text overlay: ";

TEST_F(OverlayTest, PutsTheTextOnTheVideoAndTakesItAwayAtTheEnd) {
    start_set();
    close();
    EXPECT_THAT(traffic(), are(host_connects + sets("0") + unsets + host_leaves));
    EXPECT_THAT(events(), ElementsAre(ready_event, exit_event));
    expect_ended_well();
}

TEST_F(OverlayTest, LeavesATextOfLimitedDurationToTheService) {
    // A negative one goes out as the unsigned number of the same bits.
    for (const auto& [duration, number] :
         std::vector<std::pair<std::string, std::string>>{{"5", "5"}, {"-1", "4294967295"}}) {
        start_set({.graph = overlay_with("duration = " + duration + "\n")});
        close();
        EXPECT_THAT(traffic(), are(host_connects + sets(number) + host_leaves));
    }
}

TEST_F(OverlayTest, DoesNothingAtAllWithoutAText) {
    open({.graph = "[blocks.overlay]\ntype = \"PrioritizedTextOverlaySetter\"\n"});
    start_host_without_first_call();
    wait_until_ready();
    end_host();
    EXPECT_THAT(events(), ElementsAre(ready_event, exit_event));
}

TEST_F(OverlayTest, BringsAnAbsentServiceUpWhereCallsDo) {
    start_set({.activation = true, .without = {"overlay"}});
    close();
    EXPECT_THAT(events("log"), ElementsAre());
}

TEST_F(OverlayTest, TakesARefusalForAnAnswer) {
    start_with_fault({"Set", "--times", "1", "--error", "com.tarlo.Broken"});
    wait_for_camera("\"event\":\"reply\"");
    settle();
    close();
    const Lines lines = traffic();
    EXPECT_EQ(lines.at(4), broken);
    EXPECT_EQ(lines.at(5), unsets.front());
    EXPECT_THAT(lines.at(6), StartsWith("service refuses client: "));
    EXPECT_THAT(events("log"),
                ElementsAre(StartsWith(R"({"event":"log","level":2,"message":")" + not_unset)));
}

TEST_F(OverlayTest, SaysThatItCouldNotTakeTheTextAwayFromAServiceThatIsGone) {
    start_set();
    handle({"stop", "overlay"});
    close();
    EXPECT_THAT(events("log"), ElementsAre(log_event(2, not_unset + nobody_there())));
}

TEST_F(OverlayTest, ThatIsNotAnsweredBeforeTheStopIsNotTakenAway) {
    start_with_fault({"Set", "--silent"});
    wait_until_ready();
    close();
    EXPECT_THAT(traffic(), are(host_connects + Lines{sets("0").front()} + host_leaves));
}

TEST_F(OverlayTest, IsLostWithoutALineWhereTheServiceIsAbsent) {
    start({.without = {"overlay"}});
    wait_until_ready();
    settle();
    handle({"start", "overlay"});
    close();
    EXPECT_EQ(traffic().at(4), refused_by_daemon());
    EXPECT_EQ(count(sets("0").front()), 1);
}

using VideoReadyTest = VideoScene;

const std::string failed = "Failed to signal video enabled to : ";

/// All events of a block that finds its unit enabled or not, and leaves a line about that.
Lines starts(const std::string& enabled, const Lines& log = {}) {
    return log + Lines{R"({"event":"setup","block":"video","settings":{"no_video_at_startup":)" +
                           enabled + "}}",
                       ready_event, exit_event};
}

TEST_F(VideoReadyTest, SignalsOnceWhenItStarts) {
    start();
    wait_for_replies("SignalVideoReady");
    close();
    EXPECT_EQ(count(signal_call), 1);
    EXPECT_THAT(events(), are(starts("true")));
    const common::Json values = state()["values"];
    EXPECT_EQ(values["video.1"], 1);
    EXPECT_EQ(values["video.0"], 0);
}

TEST_F(VideoReadyTest, SignalsInEveryStateOfTheUnitButMasked) {
    for (const std::string state : {"masked", "masked-runtime", "disabled", "static", "MASKED"}) {
        SCOPED_TRACE(state);
        const bool masked = state.starts_with("masked");
        open();
        set("unit", state);
        start_host();
        if (masked)
            wait_until_ready();
        else
            wait_for_replies("SignalVideoReady");
        close();
        EXPECT_EQ(count(signal_call), masked ? 0 : 1);
        const Lines log{log_event(4, "video-ready.service is masked, skipping it")};
        EXPECT_THAT(events(), are(masked ? starts("false", log) : starts("true")));
    }
}

TEST_F(VideoReadyTest, StaysSilentWithoutALineWhereNobodyKnowsTheUnit) {
    start({.without = {"init"}});
    wait_until_ready();
    close();
    EXPECT_EQ(count(signal_call), 0);
    EXPECT_THAT(events(), are(starts("false")));
}

TEST_F(VideoReadyTest, StaysSilentWhereTheStateIsUnreadable) {
    start_with_fault({"GetUnitFileState", "--malformed"});
    wait_until_ready();
    close();
    EXPECT_THAT(events(), are(starts("false", {log_event(1,
                                                         "Failed to parse status of "
                                                         "video-ready.service: " +
                                                             no_such_device)})));
}

TEST_F(VideoReadyTest, CallsUntilItIsAnswered) {
    start_with_fault({"SignalVideoReady", "--times", "3", "--error", "com.tarlo.Broken"});
    wait_for_replies("SignalVideoReady", 4);
    close();
    EXPECT_EQ(count(signal_call), 4);
    EXPECT_THAT(events("log"),
                are(3 * Lines{log_event(2, failed + "com.tarlo.Broken: " + broken_text)}));
}

TEST_F(VideoReadyTest, CallsForAServiceThatIsAbsentUntilItComes) {
    start({.without = {"video"}});
    wait_for_log(failed);
    handle({"start", "video"});
    wait_for_replies("SignalVideoReady");
    close();
    EXPECT_THAT(events("log"),
                Each(log_event(
                    2, failed + "org.freedesktop.DBus.Error.ServiceUnknown: " + nobody_there())));
}

TEST_F(VideoReadyTest, BringsAnAbsentServiceUpWhereCallsDo) {
    start({.activation = true, .without = {"video"}});
    wait_for_replies("SignalVideoReady");
    close();
    EXPECT_THAT(events("log"), ElementsAre());
}

TEST_F(VideoReadyTest, NeverSucceedsForANegativeChannel) {
    start({.graph = "[blocks.video]\ntype = \"VideoReady\"\nchannel = -1\n"});
    wait_for_log(failed);
    close();
    EXPECT_EQ(ended().code, 0);
    EXPECT_EQ(count(signal_call), 0) << "sd-bus sends no such path";
    EXPECT_THAT(events("log"),
                Each(StartsWith(R"({"event":"log","level":2,"message":")" + failed)));
}

}  // namespace
}  // namespace test
