#include "tests/integration/blocks/video_scene.hpp"

namespace test {
namespace {

class ControlsTest : public ControlsScene {
  protected:
    /// Starts the host, opening the scene before, and waits until the buttons are there.
    void start_added() {
        start();
        wait_for_replies("AddFeatures");
    }
};

const Lines follows = host_connects + adds_match(owner_rule) +
                      Lines{R"(client calls daemon: GetNameOwner("com.tarlo.Onscreencontrols1"))"};
const Lines owner_there{R"(daemon replies to client: ("service"))"};
const Lines no_owner = has_no_owner("com.tarlo.Onscreencontrols1");
const std::string list_call = "client calls service: ListAddedFeatures({})";
// Channel 1 looks for "WDR1", which is what channel 0 publishes.
const std::string channel_1 = "[blocks.controls]\ntype = \"OnScreenControls\"\nchannel = 1\n";

Lines lists(const std::string& features, const std::string& service = "service") {
    return {list_call, service + " replies to client: (" + features + ")"};
}
/// The end of the traffic of a host that has added the buttons `times` times.
Lines leaves(int times) {
    return removes_match(owner_rule) + times * Lines{remove_call} + host_leaves;
}

TEST_F(ControlsTest, PublishTheButtonsAndTakeThemAwayAtTheEnd) {
    start_added();
    handle({"press", "activateWDR1"});
    EXPECT_EQ(state()["values"]["wdr.0"], "on");
    close();
    EXPECT_THAT(traffic(), are(follows + owner_there + lists("[]") + adds() + leaves(1)));
    EXPECT_THAT(events(), ElementsAre(ready_event, exit_event));
    expect_ended_well();
    EXPECT_EQ(state().dump().find("activateWDR1"), std::string::npos);
}

TEST_F(ControlsTest, WaitForAServiceThatAppearsLater) {
    start({.without = {"controls"}});
    handle({"start", "controls"});
    wait_for_replies("AddFeatures");
    settle();
    close();
    EXPECT_THAT(traffic(), are(follows + no_owner + Lines{owner_change("", "service")} +
                               lists("[]") + adds() + leaves(1)));
}

TEST_F(ControlsTest, PublishAgainAfterARestartAndRemoveAsOftenAsTheyAdded) {
    start_added();
    restart_service();
    wait_for_replies("AddFeatures");
    settle();
    close();
    // The second removal finds nothing, and its error is not sent: no answer was wanted.
    EXPECT_THAT(traffic(), are(follows + owner_there + lists("[]") + adds() +
                               Lines{owner_change("service", ""), owner_change("", "service 2")} +
                               lists("[]", "service 2") + adds("service 2") + leaves(2)));
}

TEST_F(ControlsTest, TakeAwayWhatIsListedUnderTheirOwnNumber) {
    open({.graph = channel_1});
    ASSERT_GE(call("com.tarlo.Onscreencontrols1", "AddFeatures", "sssa{sv}", "en-us", "English",
                   wdr_document(1).c_str(), 0),
              0);
    start_host();
    wait_for_replies("RemoveFeatures");
    settle();
    close();
    EXPECT_THAT(traffic(), are(follows + owner_there + lists(R"([["WDR1",["en-us"]]])") +
                               Lines{remove_call, "service replies to client: ()"} + leaves(0)));
}

TEST_F(ControlsTest, LeaveAnEmptyListAlone) {
    start({.graph = channel_1});
    wait_for_replies("ListAddedFeatures");
    close();
    EXPECT_THAT(traffic(), are(follows + owner_there + lists("[]") + leaves(0)));
}

TEST_F(ControlsTest, TryAgainWhereTheServiceRefuses) {
    open();
    fail({"ListAddedFeatures", "--times", "1", "--error", "com.tarlo.Broken"});
    fail({"AddFeatures", "--times", "2", "--error", "com.tarlo.Broken"});
    start_host();
    wait_for_replies("AddFeatures", 3);
    settle();
    close();
    EXPECT_THAT(traffic(), are(follows + owner_there + Lines{list_call, broken} + lists("[]") +
                               2 * Lines{adds().front(), broken} + adds() + leaves(1)));
    const std::string begin = "Failed to call method ";
    EXPECT_THAT(events("log"),
                are(Lines{log_event(1, begin + "ListAddedFeatures: " + broken_text)} +
                    2 * Lines{log_event(1, begin + "AddFeatures: " + broken_text)}));
}

TEST_F(ControlsTest, WaitForTheNextOwnerWhereTheListIsOfAnotherForm) {
    start_with_fault({"ListAddedFeatures", "--times", "1", "--malformed"});
    wait_for_log("Failed to enter array: ");
    restart_service();
    wait_for_replies("AddFeatures");
    settle();
    close();
    EXPECT_THAT(events("log"),
                ElementsAre(log_event(2, "Failed to enter array: " + no_such_device)));
}

}  // namespace
}  // namespace test
