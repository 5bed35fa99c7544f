#include <gmock/gmock.h>

#include "tests/integration/blocks/monitor_scene.hpp"

namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

const std::string no_such_device = "No such device or address";
const std::string nobody_there =
    "org.freedesktop.DBus.Error.ServiceUnknown: The name com.tarlo.TemperatureController was not "
    "provided by any .service files";
const std::string sensor_id_lost = "Failed to parse sensor id: Invalid argument";
const std::string refused_by_daemon =
    "daemon refuses client: org.freedesktop.DBus.Error.ServiceUnknown("
    "\"The name com.tarlo.TemperatureController was not provided by any .service files\")";
const std::string registration_failed = "Failed to read temperature signal result: ";

using MonitorFailuresTest = MonitorScene;

/// What the monitor does behind a lookup that was answered so.
Lines without_a_number(const std::string& answer) {
    const std::string unknown =
        "service refuses client: com.tarlo.TemperatureController.Error.UnknownSensor("
        "\"No sensor has the id -1.\")";
    return host_connects +
           Lines{R"(client calls service: GetTemperatureIdFromName("main"))", answer,
                 R"(client calls service: GetTemperature(-1, "main"))", unknown} +
           matches +
           Lines{"client calls service: RegisterForTemperatureSignal(-1, 10.0, true)", unknown} +
           monitor_leaves;
}

TEST_F(MonitorFailuresTest, JudgesWithoutAServiceAndStaysSilentWhenItComes) {
    open({.without = {"temperature"}});
    start_host();
    wait_for_log(registration_failed);
    camera({"start", "temperature"});
    camera({"set", "temperature.main", "20"});
    close();

    EXPECT_THAT(
        traffic(),
        ElementsAreArray(
            host_connects +
            Lines{R"(client calls service: GetTemperatureIdFromName("main"))", refused_by_daemon,
                  R"(client calls service: GetTemperature(-1, "main"))", refused_by_daemon} +
            matches +
            Lines{
                R"(client calls service: RegisterForTemperatureSignal(-1, 10.0, true))",
                refused_by_daemon,
                R"(daemon signals: NameOwnerChanged("com.tarlo.TemperatureController", "", "service"))",
            } +
            monitor_leaves));
    // Without a reading -999 is judged, which is outside limits that somebody has configured.
    EXPECT_THAT(
        events(),
        ElementsAre(log_event(2, "Failed to lookup sensor id: " + nobody_there),
                    log_event(2, sensor_id_lost),
                    log_event(2, "Failed to read temperature: " + nobody_there),
                    log_event(2, sensor_id_lost), setup_event("false"), verdict_event("false"),
                    ready_event, log_event(2, registration_failed + no_such_device), exit_event));
}

TEST_F(MonitorFailuresTest, IsContentWithoutAServiceWhereNoLimitsAreConfigured) {
    open({.without = {"temperature"}, .graph = monitor_with("")});
    start_host();
    wait_for_log(registration_failed);
    close();
    EXPECT_THAT(events("output"), ElementsAre(verdict_event("true")));
}

TEST_F(MonitorFailuresTest, StallsWhenTheServiceIsLostAndNoCallBringsItBack) {
    open();
    start_registered_host();
    camera({"stop", "temperature"});
    wait_for_log(registration_failed);
    camera({"start", "temperature"});
    camera({"set", "temperature.main", "61"});
    close();

    EXPECT_THAT(
        traffic(),
        ElementsAreArray(
            host_connects + reads_first("36.5") + matches + registers_limits() +
            Lines{
                R"(daemon signals: NameOwnerChanged("com.tarlo.TemperatureController", "service", ""))",
                R"(client calls service: RegisterForTemperatureSignal(3, 10.0, true))",
                refused_by_daemon,
                R"(daemon signals: NameOwnerChanged("com.tarlo.TemperatureController", "", "service 2"))",
            } +
            monitor_leaves));
    EXPECT_THAT(events(),
                ElementsAre(setup_event("true"), verdict_event("true"), ready_event,
                            log_event(2, registration_failed + no_such_device), exit_event));
}

TEST_F(MonitorFailuresTest, GoesOnWithoutTheSensorsNumber) {
    open();
    camera({"fail", "GetTemperatureIdFromName", "--error", "com.tarlo.Broken"});
    start_host();
    wait_for_log(registration_failed);
    close();
    EXPECT_THAT(traffic(),
                ElementsAreArray(without_a_number(
                    "service refuses client: com.tarlo.Broken(\"A fault rule answers this "
                    "call.\")")));
    EXPECT_THAT(
        events("log"),
        ElementsAre(
            ::testing::StartsWith(
                R"({"event":"log","level":2,"message":"Failed to lookup sensor id: com.tarlo.Broken: )"),
            log_event(2, sensor_id_lost),
            ::testing::StartsWith(
                R"({"event":"log","level":2,"message":"Failed to read temperature: com.tarlo.)"),
            log_event(2, sensor_id_lost), log_event(2, registration_failed + no_such_device)));
    EXPECT_THAT(events("output"), ElementsAre(verdict_event("false")));
}

TEST_F(MonitorFailuresTest, LogsAnUnreadableNumberOfTheSensor) {
    open();
    camera({"fail", "GetTemperatureIdFromName", "--malformed"});
    start_host();
    wait_for_log(registration_failed);
    close();
    EXPECT_THAT(traffic(),
                ElementsAreArray(without_a_number("service replies to client: (\"malformed\")")));
    EXPECT_THAT(
        events("log"),
        ElementsAre(
            log_event(2, "Failed to parse sensor id: " + no_such_device),
            ::testing::StartsWith(
                R"({"event":"log","level":2,"message":"Failed to read temperature: com.tarlo.)"),
            log_event(2, sensor_id_lost), log_event(2, registration_failed + no_such_device)));
}

TEST_F(MonitorFailuresTest, LogsAnUnreadableTemperatureWithTheTextOfTheNumber) {
    open();
    camera({"fail", "GetTemperature", "--malformed"});
    start_registered_host();
    wait_for_output("true");
    close();
    EXPECT_THAT(events("log"),
                ElementsAre(log_event(2, "Failed to parse sensor id: " + no_such_device),
                            verdict_log("true")));
    // The registrations tell that the temperature is inside after all.
    EXPECT_THAT(events("output"), ElementsAre(verdict_event("false"), verdict_event("true")));
}

TEST_F(MonitorFailuresTest, WaitsForTheFirstReadingNoLongerThanACallMayTake) {
    open({.host_options = {"--call-timeout", "0.4"}});
    camera({"fail", "GetTemperature", "--silent"});
    start_registered_host();
    wait_for_output("true");
    close();
    EXPECT_THAT(
        events("log"),
        ElementsAre(::testing::StartsWith(
                        R"({"event":"log","level":2,"message":"Failed to read temperature: )"
                        R"(org.freedesktop.DBus.Error.)"),
                    log_event(2, sensor_id_lost), verdict_log("true")));
}

/// How a registration goes wrong, and what is on the bus behind it, to the end of the controller.
struct Mishap {
    const char* name;
    std::vector<std::string> fault;
    Lines answer;
    std::vector<std::string> host_options{};
};

std::ostream& operator<<(std::ostream& out, const Mishap& mishap) {
    return out << mishap.name;
}

class MonitorRegistrationTest : public MonitorScene,
                                public ::testing::WithParamInterface<Mishap> {};

TEST_P(MonitorRegistrationTest, StallsForGoodWithTheLastVerdict) {
    open({.host_options = GetParam().host_options});
    std::vector<std::string> order{"fail", "RegisterForTemperatureSignal", "--times", "1"};
    order.insert(order.end(), GetParam().fault.begin(), GetParam().fault.end());
    camera(order);
    start_host();
    wait_for_log(registration_failed);
    camera({"restart", "temperature"});
    camera({"set", "temperature.main", "61"});
    close();
    EXPECT_THAT(events(),
                ElementsAre(setup_event("true"), verdict_event("true"), ready_event,
                            log_event(2, registration_failed + no_such_device), exit_event));
    EXPECT_THAT(
        traffic(),
        ElementsAreArray(
            host_connects + reads_first("36.5") + matches +
            Lines{"client calls service: RegisterForTemperatureSignal(3, 10.0, true)"} +
            GetParam().answer +
            Lines{
                R"(daemon signals: NameOwnerChanged("com.tarlo.TemperatureController", "", "service 2"))"} +
            monitor_leaves));
}

const std::string lost =
    R"(daemon signals: NameOwnerChanged("com.tarlo.TemperatureController", "service", ""))";
const std::string no_reply =
    "daemon refuses client: org.freedesktop.DBus.Error.NoReply(\"Message recipient disconnected "
    "from "
    "message bus without replying\")";

INSTANTIATE_TEST_SUITE_P(
    Reply, MonitorRegistrationTest,
    ::testing::Values(
        Mishap{"AnError",
               {"--error", "com.tarlo.Broken"},
               {"service refuses client: com.tarlo.Broken(\"A fault rule answers this call.\")",
                lost}},
        Mishap{
            "OfAnotherType", {"--malformed"}, {"service replies to client: (\"malformed\")", lost}},
        Mishap{"ThatNeverComes", {"--silent"}, {lost, no_reply}, {"--call-timeout", "0.4"}},
        Mishap{"OfAServiceThatDies", {"--drop"}, {lost, no_reply}}),
    [](const auto& mishap) { return std::string(mishap.param.name); });

TEST_F(MonitorFailuresTest, LogsASignalOfAnotherTypeAndTakesTheNext) {
    open();
    camera({"fail", "TemperatureSignal", "--malformed", "--times", "1"});
    start_registered_host();
    camera({"set", "temperature.main", "61"});
    wait_for_log("Failed to setup temperature signal: ");
    camera({"set", "temperature.main", "50"});
    camera({"set", "temperature.main", "61"});
    wait_for_output("false");
    close();
    EXPECT_THAT(events("log"),
                ElementsAre(log_event(2, "Failed to setup temperature signal: " + no_such_device),
                            verdict_log("false")));
}

TEST_F(MonitorFailuresTest, LogsAnOwnerChangeOfAnotherForm) {
    open();
    start_registered_host();
    const common::BusPtr other = common::open_bus(address(), std::chrono::seconds(5));
    ASSERT_GE(sd_bus_emit_signal(other.get(), "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                 "NameOwnerChanged", "i", 1),
              0);
    ASSERT_GE(sd_bus_flush(other.get()), 0);
    wait_for_log("NameOwnerChanged failed to parse message: ");
    camera({"set", "temperature.main", "61"});
    wait_for_output("false");
    close();
    EXPECT_THAT(
        events("log"),
        ElementsAre(log_event(2, "NameOwnerChanged failed to parse message: " + no_such_device),
                    verdict_log("false")));
}

TEST_F(MonitorFailuresTest, TakesARefusedMatchForSignalsAsInstalledAndHearsNothing) {
    open({.bus_xml = "<limit name=\"max_match_rules_per_connection\">1</limit>"});
    start_registered_host();
    camera({"set", "temperature.main", "61"});
    wait_for_camera("\"member\":\"TemperatureSignal\"");
    close();
    EXPECT_THAT(events(),
                ElementsAre(setup_event("true"), verdict_event("true"), ready_event, exit_event));
}

}  // namespace
}  // namespace test
