#include <gmock/gmock.h>

#include "tests/integration/blocks/video_scene.hpp"

namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::StartsWith;

using OverlayTest = OverlayScene;

const std::string refused_by_daemon =
    "daemon refuses client: org.freedesktop.DBus.Error.ServiceUnknown("
    "\"The name com.tarlo.PrioritizedTextOverlay was not provided by any .service files\")";

Lines sets(const std::string& duration) {
    return {"client calls service: Set(\"Hello\", " + duration + ")",
            "service replies to client: ()"};
}
const Lines unsets{R"(client calls service: Unset("Hello"))", "service replies to client: ()"};

TEST_F(OverlayTest, PutsTheTextOnTheVideoAndTakesItAwayAtTheEnd) {
    open();
    start_host();
    wait_for_replies("Set");
    settle();
    close();
    EXPECT_THAT(traffic(), ElementsAreArray(host_connects + sets("0") + unsets + host_leaves));
    EXPECT_THAT(events(), ElementsAre(ready_event, exit_event));
    EXPECT_EQ(ended().err, "");
}

TEST_F(OverlayTest, LeavesATextOfLimitedDurationToTheService) {
    open({.graph = overlay_with("duration = 5\n")});
    start_host();
    wait_for_replies("Set");
    settle();
    close();
    EXPECT_THAT(traffic(), ElementsAreArray(host_connects + sets("5") + host_leaves));
}

TEST_F(OverlayTest, HandsANegativeDurationOnAsTheUnsignedNumberOfTheSameBits) {
    open({.graph = overlay_with("duration = -1\n")});
    start_host();
    wait_for_replies("Set");
    settle();
    close();
    EXPECT_THAT(traffic(), ElementsAreArray(host_connects + sets("4294967295") + host_leaves));
}

TEST_F(OverlayTest, DoesNothingAtAllWithoutAText) {
    open({.graph = "[blocks.overlay]\ntype = \"PrioritizedTextOverlaySetter\"\n"});
    start_host_without_first_call();
    wait_until_ready();
    end_host();
    EXPECT_THAT(events(), ElementsAre(ready_event, exit_event));
}

TEST_F(OverlayTest, BringsAnAbsentServiceUpWhereCallsDo) {
    open({.activation = true, .without = {"overlay"}});
    start_host();
    wait_for_replies("Set");
    settle();
    close();
    EXPECT_THAT(events("log"), ElementsAre());
}

TEST_F(OverlayTest, TakesARefusalForAnAnswer) {
    open();
    camera({"fail", "Set", "--times", "1", "--error", "com.tarlo.Broken"});
    start_host();
    wait_for_camera("\"event\":\"reply\"");
    settle();
    close();
    const Lines lines = traffic();
    EXPECT_EQ(lines.at(4),
              R"(service refuses client: com.tarlo.Broken("A fault rule answers this call."))");
    EXPECT_EQ(lines.at(5), unsets.front());
    EXPECT_THAT(lines.at(6), StartsWith("service refuses client: "));
    EXPECT_THAT(events("log"),
                ElementsAre(StartsWith(R"({"event":"log","level":2,"message":"Could not unset )"
                                       R"(prioritized text overlay: )")));
}

TEST_F(OverlayTest, SaysThatItCouldNotTakeTheTextAwayFromAServiceThatIsGone) {
    open();
    start_host();
    wait_for_replies("Set");
    settle();
    camera({"stop", "overlay"});
    close();
    EXPECT_THAT(events("log"),
                ElementsAre(log_event(
                    2,
                    "Could not unset prioritized text overlay: The name "
                    "com.tarlo.PrioritizedTextOverlay was not provided by any .service files")));
}

TEST_F(OverlayTest, ThatIsNotAnsweredBeforeTheStopIsNotTakenAway) {
    open();
    camera({"fail", "Set", "--silent"});
    start_host();
    wait_until_ready();
    close();
    EXPECT_THAT(traffic(),
                ElementsAreArray(host_connects + Lines{sets("0").front()} + host_leaves));
}

TEST_F(OverlayTest, IsLostWithoutALineWhereTheServiceIsAbsent) {
    open({.without = {"overlay"}});
    start_host();
    wait_until_ready();
    settle();
    camera({"start", "overlay"});
    close();
    const Lines lines = traffic();
    EXPECT_EQ(lines.at(4), refused_by_daemon);
    EXPECT_EQ(std::ranges::count(lines, sets("0").front()), 1);
}

}  // namespace
}  // namespace test
