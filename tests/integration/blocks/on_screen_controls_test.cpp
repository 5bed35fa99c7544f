#include <gmock/gmock.h>

#include "tests/integration/blocks/video_scene.hpp"

namespace test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::StartsWith;

using ControlsTest = ControlsScene;

const Lines asks_for_owner{R"(client calls daemon: GetNameOwner("com.tarlo.Onscreencontrols1"))"};
const Lines owner_there{R"(daemon replies to client: ("service"))"};
const Lines no_owner{
    R"(daemon refuses client: org.freedesktop.DBus.Error.NameHasNoOwner("Could not get owner of name 'com.tarlo.Onscreencontrols1': no such name"))"};
const Lines follows = host_connects + adds_match(owner_rule) + asks_for_owner;
const std::string list_call = "client calls service: ListAddedFeatures({})";
const std::string owner_changed =
    R"(daemon signals: NameOwnerChanged("com.tarlo.Onscreencontrols1", )";

/// The document of channel 0.
const std::string document =
    R"({"featureGroups":[],"features":[{"info":"Turn on WDR to make both dark and bright areas of )"
    R"(the image visible on channel 1","name":"activateWDR1","niceName":"Turn on WDR 1",)"
    R"("requestPayload":"JSON","requestType":"GET","requestURL":"/tarlo-cgi/param.cgi?action=)"
    R"(update&ImageSource.I0.Sensor.WDR=on","response":false,"user":["operator"]},{"info":"Turn )"
    R"(off WDR on channel 1","name":"deactivateWDR1","niceName":"Turn off WDR 1","requestPayload":)"
    R"("JSON","requestType":"GET","requestURL":"/tarlo-cgi/param.cgi?action=update&ImageSource.)"
    R"(I0.Sensor.WDR=off","response":false,"user":["operator"]}],"name":"WDR1","niceName":"WDR 1"})";

Lines lists(const std::string& features, const std::string& service = "service") {
    return {list_call, service + " replies to client: (" + features + ")"};
}
Lines adds(const std::string& service = "service") {
    return {R"(client calls service: AddFeatures("en-us", "English", )" +
                common::json_line(document) + ", {})",
            service + " replies to client: ()"};
}
/// What is sent when the host stops after it has added `times` times.
Lines leaves(int times) {
    Lines lines = removes_match(owner_rule);
    for (int i = 0; i < times; ++i)
        lines.emplace_back(R"(client calls service: RemoveFeatures("WDR1", "en-us", {}))");
    return lines + host_leaves;
}

TEST_F(ControlsTest, PublishTheButtonsAndTakeThemAwayAtTheEnd) {
    open();
    start_host();
    wait_for_replies("AddFeatures");
    camera({"press", "activateWDR1"});
    const Ended shown =
        run_program({FENWA_CAMERA_PROGRAM, "show", "--format", "json", "--bus", address()});
    EXPECT_EQ(common::Json::parse(shown.out)["values"]["wdr.0"], "on");
    close();

    EXPECT_THAT(traffic(),
                ElementsAreArray(follows + owner_there + lists("[]") + adds() + leaves(1)));
    EXPECT_THAT(events(), ElementsAre(ready_event, exit_event));
    EXPECT_EQ(ended().code, 0);
    EXPECT_EQ(ended().err, "");
    const Ended pressed =
        run_program({FENWA_CAMERA_PROGRAM, "press", "activateWDR1", "--bus", address()});
    EXPECT_NE(pressed.code, 0) << "the button is still there";
}

TEST_F(ControlsTest, WaitForAServiceThatAppearsLater) {
    open({.without = {"controls"}});
    start_host();
    camera({"start", "controls"});
    wait_for_replies("AddFeatures");
    settle();
    close();
    EXPECT_THAT(traffic(),
                ElementsAreArray(follows + no_owner + Lines{owner_changed + R"("", "service"))"} +
                                 lists("[]") + adds() + leaves(1)));
}

TEST_F(ControlsTest, PublishAgainAfterARestartAndRemoveAsOftenAsTheyAdded) {
    open();
    start_host();
    wait_for_replies("AddFeatures");
    camera({"stop", "controls"});
    camera({"start", "controls"});
    wait_for_replies("AddFeatures");
    settle();
    close();
    // The second removal finds nothing, which nobody learns: no answer was wanted.
    EXPECT_THAT(traffic(),
                ElementsAreArray(follows + owner_there + lists("[]") + adds() +
                                 Lines{owner_changed + R"("service", ""))",
                                       owner_changed + R"("", "service 2"))"} +
                                 lists("[]", "service 2") + adds("service 2") + leaves(2)));
}

TEST_F(ControlsTest, ComeBackAfterEachOfTwoHundredCrashes) {
    open();
    start_host();
    wait_for_replies("AddFeatures");
    for (int crash = 0; crash < 200 && !HasFatalFailure(); ++crash) {
        SCOPED_TRACE(crash);
        camera({"stop", "controls"});
        camera({"start", "controls"});
        wait_for_replies("AddFeatures");
        settle();
        camera({"press", crash % 2 == 0 ? "activateWDR1" : "deactivateWDR1"});
    }
    close();
    EXPECT_THAT(events("log"), ElementsAre());
    const Lines lines = traffic();
    EXPECT_EQ(std::ranges::count(lines, adds().front()), 201);
    EXPECT_EQ(std::ranges::count(lines, leaves(1).at(1)), 201);
}

TEST_F(ControlsTest, TakeAwayWhatIsListedUnderTheirOwnNumber) {
    // Channel 1 looks for "WDR1", which is what channel 0 publishes.
    open({.graph = "[blocks.controls]\ntype = \"OnScreenControls\"\nchannel = 1\n"});
    const common::BusPtr other = common::open_bus(address(), std::chrono::seconds(5));
    const char* const name = "com.tarlo.Onscreencontrols1";
    ASSERT_GE(
        sd_bus_call_method(other.get(), name, "/com/tarlo/Onscreencontrols1", name, "AddFeatures",
                           nullptr, nullptr, "sssa{sv}", "en-us", "English", document.c_str(), 0),
        0);
    start_host();
    wait_for_replies("RemoveFeatures");
    settle();
    close();
    EXPECT_THAT(traffic(), ElementsAreArray(
                               follows + owner_there + lists(R"([["WDR1",["en-us"]]])") +
                               Lines{R"(client calls service: RemoveFeatures("WDR1", "en-us", {}))",
                                     "service replies to client: ()"} +
                               leaves(0)));
}

TEST_F(ControlsTest, LeaveAnEmptyListAlone) {
    open({.graph = "[blocks.controls]\ntype = \"OnScreenControls\"\nchannel = 1\n"});
    start_host();
    wait_for_replies("ListAddedFeatures");
    close();
    EXPECT_THAT(traffic(), ElementsAreArray(follows + owner_there + lists("[]") + leaves(0)));
}

TEST_F(ControlsTest, TryAgainWhereTheServiceRefuses) {
    open();
    camera({"fail", "ListAddedFeatures", "--times", "1", "--error", "com.tarlo.Broken"});
    camera({"fail", "AddFeatures", "--times", "2", "--error", "com.tarlo.Broken"});
    start_host();
    wait_for_replies("AddFeatures", 3);
    settle();
    close();
    const std::string broken =
        R"(service refuses client: com.tarlo.Broken("A fault rule answers this call."))";
    const Lines refused_add{adds().front(), broken};
    EXPECT_THAT(traffic(),
                ElementsAreArray(follows + owner_there + Lines{list_call, broken} + lists("[]") +
                                 refused_add + refused_add + adds() + leaves(1)));
    const std::string text = "A fault rule answers this call.";
    EXPECT_THAT(events("log"),
                ElementsAre(log_event(1, "Failed to call method ListAddedFeatures: " + text),
                            log_event(1, "Failed to call method AddFeatures: " + text),
                            log_event(1, "Failed to call method AddFeatures: " + text)));
}

TEST_F(ControlsTest, WaitForTheNextOwnerWhereTheListIsOfAnotherForm) {
    open();
    camera({"fail", "ListAddedFeatures", "--times", "1", "--malformed"});
    start_host();
    wait_for_log("Failed to enter array: ");
    camera({"stop", "controls"});
    camera({"start", "controls"});
    wait_for_replies("AddFeatures");
    settle();
    close();
    EXPECT_THAT(events("log"),
                ElementsAre(log_event(2, "Failed to enter array: No such device or address")));
}

}  // namespace
}  // namespace test
