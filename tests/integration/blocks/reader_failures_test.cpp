#include "tests/integration/blocks/reader_scene.hpp"

namespace test {
namespace {

/// A method of the reader's set-up, and the line that an unreadable reply to it leaves.
struct Step {
    const char* member;
    const char* line;
    std::size_t calls;  ///< of the controller until then, this one included
};
void PrintTo(const Step& step, std::ostream* out) {
    *out << step.member;
}

class ReaderStepTest : public ReaderScene,
                       public ::testing::WithParamInterface<std::tuple<Step, Mishap>> {};

// Nothing is published, and however much happens on the bus, the reader calls nothing more.
TEST_P(ReaderStepTest, LeavesOneLineAndStalls) {
    const auto& [step, mishap] = GetParam();
    start_with_fault(Lines{step.member} + mishap.fault, {.host_options = {"--call-timeout", "1"}});
    wait_for_log(step.line);
    set("temperature.lens", "50");
    close();
    EXPECT_THAT(events("log"), ElementsAre(log_event(2, step.line + no_such_device)));
    EXPECT_THAT(events("output"), ElementsAre());
    EXPECT_THAT(with("client calls service:", traffic()), SizeIs(step.calls));
}

INSTANTIATE_TEST_SUITE_P(
    Setup, ReaderStepTest,
    ::testing::Combine(::testing::Values(Step{"GetTemperatureIdFromName",
                                              "Failed to parse sensor id: ", 1},
                                         Step{"RegisterForTemperatureChangeSignal",
                                              "Failed to setup temperature change singal: ", 2},
                                         Step{"GetTemperature", "Failed to parse sensor id: ", 3}),
                       ::testing::Values(an_error, another_type, no_answer, a_death)),
    [](const auto& setup) {
        return std::string(std::get<0>(setup.param).member) + "_" + std::get<1>(setup.param).name;
    });

using ReaderFailuresTest = ReaderScene;

TEST_F(ReaderFailuresTest, StaysStalledThroughARestartOfTheService) {
    start_with_fault({"GetTemperatureIdFromName", "--times", "1", "--error", "com.tarlo.Broken"});
    wait_for_log("Failed to parse sensor id: ");
    handle({"restart", "temperature"});
    set_temperature("50");
    close();
    EXPECT_THAT(events("log"),
                ElementsAre(log_event(2, "Failed to parse sensor id: " + no_such_device)));
    EXPECT_THAT(events("output"), ElementsAre());
}

TEST_F(ReaderFailuresTest, PublishesChangesEvenWhenTheFirstReadingFailed) {
    start_with_fault({"GetTemperature", "--error", "com.tarlo.Broken"});
    wait_for_log("Failed to parse sensor id: ");
    set_temperature("50");
    wait_for_output("50.0");
    close();
    EXPECT_THAT(events("output"), ElementsAre(reading_event("50.0")));
}

TEST_F(ReaderFailuresTest, LogsAChangeSignalOfAnotherTypeAndTakesTheNext) {
    start_with_fault({"TemperatureChangeSignal", "--malformed", "--times", "1"});
    wait_for_output("36.5");
    set_temperature("50");
    wait_for_log("Failed to setup temperature signal: ");
    set_temperature("60");
    wait_for_output("60.0");
    close();
    EXPECT_THAT(events("log"),
                ElementsAre(log_event(2, "Failed to setup temperature signal: " + no_such_device)));
    EXPECT_THAT(events("output"), are(reading_events({"36.5", "60.0"})));
}

TEST_F(ReaderFailuresTest, RetriesARefusedMatchForOwnerChangesForEver) {
    open({.bus_xml = max_matches(0), .camera_there = false});
    start_host_without_first_call();
    wait_for_log("Error when adding match for NameOwnerChanged: ", 2);
    end_host();
    EXPECT_EQ(ended().code, 0);
    EXPECT_THAT(events("log"), SizeIs(::testing::Ge(2)));
    EXPECT_THAT(events("log"),
                Each(AllOf(StartsWith(R"({"event":"log","level":1,"message":"Error when adding )"
                                      R"(match for NameOwnerChanged: )"),
                           HasSubstr(too_many_matches_text()))));
}

TEST_F(ReaderFailuresTest, TakesARefusedMatchForChangesAsInstalled) {
    if (on_dbus_broker())
        GTEST_SKIP() << matches_of_a_user;
    start_reading({.bus_xml = max_matches(1)});
    set_temperature("50");
    wait_for_camera("\"event\":\"signal\"");
    close();
    EXPECT_THAT(events("log"), ElementsAre());
    EXPECT_THAT(events("output"), ElementsAre(reading_event("36.5")));
}

TEST_F(ReaderFailuresTest, AsksAgainForAnOwnerThatItMayNotKnow) {
    start({.bus_xml =
               R"(<policy context="mandatory"><deny send_destination="org.freedesktop.DBus" )"
               R"(send_interface="org.freedesktop.DBus" send_member="GetNameOwner"/></policy>)"});
    wait_for_log("Error when retrieving NameOwner: ", 2);
    close();
    EXPECT_EQ(ended().code, 0);
    EXPECT_THAT(events("log"),
                Each(StartsWith(R"({"event":"log","level":1,"message":"Error when retrieving )"
                                R"(NameOwner: )" +
                                denied_text())));
}

}  // namespace
}  // namespace test
