#include <gmock/gmock.h>

#include "tests/integration/blocks/reader_scene.hpp"

namespace test {
namespace {

using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;
using ::testing::StartsWith;

const std::string no_such_device = "No such device or address";
const std::string change_signal = "TemperatureChangeSignal";

/// A method of the reader's set-up, and the line that an unreadable reply to it leaves.
struct Step {
    const char* member;
    const char* line;
    int calls;  ///< of the controller until then, this one included
};

std::ostream& operator<<(std::ostream& out, const Step& step) {
    return out << step.member;
}

class ReaderStepTest : public ReaderScene, public ::testing::WithParamInterface<Step> {
  protected:
    /// After the failed reply: nothing is published, and however much happens on the bus, the
    /// reader calls nothing more.
    void expect_one_line_and_silence() {
        wait_for_log(GetParam().line);
        camera({"set", "temperature.lens", "50"});
        close();
        EXPECT_THAT(events("log"), ElementsAre(log_event(2, GetParam().line + no_such_device)));
        EXPECT_THAT(events("output"), ElementsAre());
        int calls = 0;
        for (const std::string& line : traffic())
            calls += line.starts_with("client calls service:") ? 1 : 0;
        EXPECT_EQ(calls, GetParam().calls);
    }
};

TEST_P(ReaderStepTest, StallsAfterAnErrorReply) {
    open();
    camera({"fail", GetParam().member, "--error", "com.tarlo.TemperatureController.Error.Broken"});
    start_host();
    expect_one_line_and_silence();
}

TEST_P(ReaderStepTest, StallsAfterAReplyOfAnotherType) {
    open();
    camera({"fail", GetParam().member, "--malformed"});
    start_host();
    expect_one_line_and_silence();
}

TEST_P(ReaderStepTest, StallsAfterATimeOut) {
    open({.host_options = {"--call-timeout", "0.3"}});
    camera({"fail", GetParam().member, "--silent"});
    start_host();
    expect_one_line_and_silence();
}

TEST_P(ReaderStepTest, StallsWhenTheServiceDiesWithTheCallPending) {
    open();
    camera({"fail", GetParam().member, "--drop"});
    start_host();
    expect_one_line_and_silence();
}

INSTANTIATE_TEST_SUITE_P(
    Setup, ReaderStepTest,
    ::testing::Values(Step{"GetTemperatureIdFromName", "Failed to parse sensor id: ", 1},
                      Step{"RegisterForTemperatureChangeSignal",
                           "Failed to setup temperature change singal: ", 2},
                      Step{"GetTemperature", "Failed to parse sensor id: ", 3}),
    [](const auto& step) { return std::string(step.param.member); });

using ReaderFailuresTest = ReaderScene;

TEST_F(ReaderFailuresTest, StaysStalledThroughARestartOfTheService) {
    open();
    camera({"fail", "GetTemperatureIdFromName", "--times", "1", "--error", "com.tarlo.Broken"});
    start_host();
    wait_for_log("Failed to parse sensor id: ");
    camera({"restart", "temperature"});
    camera({"set", "temperature.main", "50"});
    close();
    EXPECT_THAT(events("log"),
                ElementsAre(log_event(2, "Failed to parse sensor id: " + no_such_device)));
    EXPECT_THAT(events("output"), ElementsAre());
}

TEST_F(ReaderFailuresTest, PublishesChangesEvenWhenTheFirstReadingFailed) {
    open();
    camera({"fail", "GetTemperature", "--error", "com.tarlo.Broken"});
    start_host();
    wait_for_log("Failed to parse sensor id: ");
    camera({"set", "temperature.main", "50"});
    wait_for_output("50.0");
    close();
    EXPECT_THAT(events("output"), ElementsAre(reading_event("50.0")));
}

TEST_F(ReaderFailuresTest, LogsAChangeSignalOfAnotherTypeAndTakesTheNext) {
    open();
    camera({"fail", change_signal, "--malformed", "--times", "1"});
    start_host();
    wait_for_output("36.5");
    camera({"set", "temperature.main", "50"});
    wait_for_log("Failed to setup temperature signal: ");
    camera({"set", "temperature.main", "60"});
    wait_for_output("60.0");
    close();
    EXPECT_THAT(events("log"),
                ElementsAre(log_event(2, "Failed to setup temperature signal: " + no_such_device)));
    EXPECT_THAT(events("output"), ElementsAre(reading_event("36.5"), reading_event("60.0")));
}

TEST_F(ReaderFailuresTest, RetriesARefusedMatchForOwnerChangesForEver) {
    open({.bus_xml = "<limit name=\"max_match_rules_per_connection\">0</limit>",
          .camera_there = false});
    start_host_without_first_call();
    wait_for_log("Error when adding match for NameOwnerChanged: ");
    wait_for_log("Error when adding match for NameOwnerChanged: ");
    end_host();
    EXPECT_EQ(ended().code, 0);
    const std::vector<std::string> lines = events("log");
    EXPECT_THAT(lines, SizeIs(::testing::Ge(2)));
    EXPECT_THAT(lines,
                Each(AllOf(StartsWith(R"({"event":"log","level":1,"message":"Error when adding )"
                                      R"(match for NameOwnerChanged: Connection \")"),
                           HasSubstr("is not allowed to add more match rules"))));
}

TEST_F(ReaderFailuresTest, TakesARefusedMatchForChangesAsInstalled) {
    open({.bus_xml = "<limit name=\"max_match_rules_per_connection\">1</limit>"});
    start_host();
    wait_for_output("36.5");
    camera({"set", "temperature.main", "50"});
    wait_for_camera("\"event\":\"signal\"");
    close();
    EXPECT_THAT(events("log"), ElementsAre());
    EXPECT_THAT(events("output"), ElementsAre(reading_event("36.5")));
}

TEST_F(ReaderFailuresTest, AsksAgainForAnOwnerThatItMayNotKnow) {
    open({.bus_xml = "<policy context=\"mandatory\">"
                     "<deny send_destination=\"org.freedesktop.DBus\" "
                     "send_interface=\"org.freedesktop.DBus\" "
                     "send_member=\"GetNameOwner\"/></policy>"});
    start_host();
    wait_for_log("Error when retrieving NameOwner: ");
    wait_for_log("Error when retrieving NameOwner: ");
    close();
    EXPECT_EQ(ended().code, 0);
    EXPECT_THAT(events("log"),
                Each(StartsWith(R"({"event":"log","level":1,"message":"Error when retrieving )"
                                R"(NameOwner: Rejected send message)")));
}

}  // namespace
}  // namespace test
