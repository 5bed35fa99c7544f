#include "tests/integration/blocks/monitor_scene.hpp"

namespace test {
namespace {

const std::string sensor_id_lost = log_event(2, "Failed to parse sensor id: Invalid argument");
const std::string registration_failed = "Failed to read temperature signal result: ";
const std::string registration_log = log_event(2, registration_failed + no_such_device);

class MonitorFailuresTest : public MonitorScene {
  protected:
    /// All traffic of a monitor whose lookup was answered so, and whose further calls are refused.
    static Lines without_a_number(const std::string& answer, const std::string& refusal) {
        return host_connects +
               Lines{looks_up, answer, R"(client calls service: GetTemperature(-1, "main"))",
                     refusal} +
               matches + Lines{registers_first("-1"), refusal};
    }
};

TEST_F(MonitorFailuresTest, JudgesWithoutAServiceAndStaysSilentWhenItComes) {
    start({.without = {"temperature"}});
    wait_for_log(registration_failed);
    handle({"start", "temperature"});
    set_temperature("20");
    close();
    EXPECT_THAT(traffic(), are(without_a_number(refused_by_daemon(), refused_by_daemon()) +
                               Lines{owner_change("", "service")} + monitor_leaves));
    const std::string nobody = "org.freedesktop.DBus.Error.ServiceUnknown: " + nobody_there();
    // Without a reading -999 is judged, which is outside limits that somebody has configured.
    EXPECT_THAT(events(),
                are(Lines{log_event(2, "Failed to lookup sensor id: " + nobody), sensor_id_lost,
                          log_event(2, "Failed to read temperature: " + nobody), sensor_id_lost} +
                    judges_and_logs("false", registration_log)));
}

TEST_F(MonitorFailuresTest, IsContentWithoutAServiceWhereNoLimitsAreConfigured) {
    start({.without = {"temperature"}, .graph = monitor_with("")});
    wait_for_log(registration_failed);
    close();
    EXPECT_THAT(events("output"), ElementsAre(verdict_event("true")));
}

TEST_F(MonitorFailuresTest, StallsWhenTheServiceIsLostAndNoCallBringsItBack) {
    start_registered();
    handle({"stop", "temperature"});
    wait_for_log(registration_failed);
    handle({"start", "temperature"});
    set_temperature("61");
    close();
    EXPECT_THAT(traffic(), are(host_connects + reads_first("36.5") + matches + registers_limits() +
                               Lines{owner_change("service", ""), registers_first(),
                                     refused_by_daemon(), owner_change("", "service 2")} +
                               monitor_leaves));
    EXPECT_THAT(events(), are(judges_and_logs("true", registration_log)));
}

class MonitorLookupTest : public MonitorFailuresTest,
                          public ::testing::WithParamInterface<Mishap> {};

TEST_P(MonitorLookupTest, GoesOnWithoutTheSensorsNumber) {
    start_with_fault(Lines{"GetTemperatureIdFromName"} + GetParam().fault);
    wait_for_log(registration_failed);
    close();
    EXPECT_THAT(traffic(), are(without_a_number(
                                   GetParam().answer.front(),
                                   "service refuses client: com.tarlo.TemperatureController.Error."
                                   "UnknownSensor(\"No sensor has the id -1.\")") +
                               monitor_leaves));
    const std::string begin = R"({"event":"log","level":2,"message":"Failed to )";
    const Lines lookup =
        GetParam().served() ? Lines{log_event(2, "Failed to parse sensor id: " + no_such_device)}
                            : Lines{begin + "lookup sensor id: com.tarlo.Broken: ", sensor_id_lost};
    const Lines begins =
        lookup + Lines{begin + "read temperature: com.tarlo.", sensor_id_lost, registration_log};
    const Lines log = events("log");
    ASSERT_EQ(log.size(), begins.size());
    for (std::size_t i = 0; i < log.size(); ++i)
        EXPECT_THAT(log[i], StartsWith(begins[i]));
    EXPECT_THAT(events("output"), ElementsAre(verdict_event("false")));
}

INSTANTIATE_TEST_SUITE_P(Reply, MonitorLookupTest, ::testing::Values(an_error, another_type),
                         mishap_name);

TEST_F(MonitorFailuresTest, LogsAnUnreadableTemperatureWithTheTextOfTheNumber) {
    start_with_fault({"GetTemperature", "--malformed"});
    wait_until_registered();
    wait_for_output("true");
    close();
    EXPECT_THAT(events("log"),
                ElementsAre(log_event(2, "Failed to parse sensor id: " + no_such_device),
                            verdict_log("true")));
    // The registrations tell that the temperature is inside after all.
    EXPECT_THAT(events("output"), ElementsAre(verdict_event("false"), verdict_event("true")));
}

TEST_F(MonitorFailuresTest, WaitsForTheFirstReadingNoLongerThanACallMayTake) {
    start_with_fault({"GetTemperature", "--silent"}, {.host_options = {"--call-timeout", "0.4"}});
    wait_until_registered();
    wait_for_output("true");
    close();
    EXPECT_THAT(
        events("log"),
        ElementsAre(StartsWith(R"({"event":"log","level":2,"message":"Failed to read temperature: )"
                               R"(org.freedesktop.DBus.Error.)"),
                    sensor_id_lost, verdict_log("true")));
}

class MonitorRegistrationTest : public MonitorScene,
                                public ::testing::WithParamInterface<Mishap> {};

TEST_P(MonitorRegistrationTest, StallsForGoodWithTheLastVerdict) {
    start_with_fault(Lines{"RegisterForTemperatureSignal", "--times", "1"} + GetParam().fault,
                     {.host_options = {"--call-timeout", "1"}});
    wait_for_log(registration_failed);
    handle({"restart", "temperature"});
    set_temperature("61");
    close();
    EXPECT_THAT(events(), are(judges_and_logs("true", registration_log)));
    const Lines lost{owner_change("service", "")};
    const Lines& answer = GetParam().answer;
    EXPECT_THAT(traffic(),
                are(host_connects + reads_first("36.5") + matches + Lines{registers_first()} +
                    (answer.empty() ? lost + Lines{died} : answer + lost) +
                    Lines{owner_change("", "service 2")} + monitor_leaves));
}

INSTANTIATE_TEST_SUITE_P(Reply, MonitorRegistrationTest,
                         ::testing::Values(an_error, another_type, no_answer, a_death),
                         mishap_name);

TEST_F(MonitorFailuresTest, LogsASignalOfAnotherTypeAndTakesTheNext) {
    open();
    fail({"TemperatureSignal", "--malformed", "--times", "1"});
    start_host();
    wait_until_registered();
    set_temperature("61");
    wait_for_log("Failed to setup temperature signal: ");
    set_temperature("50");
    set_temperature("61");
    wait_for_output("false");
    close();
    EXPECT_THAT(events("log"),
                ElementsAre(log_event(2, "Failed to setup temperature signal: " + no_such_device),
                            verdict_log("false")));
}

TEST_F(MonitorFailuresTest, LogsAnOwnerChangeOfAnotherForm) {
    start_registered();
    emit_owner_change("i", 1);
    wait_for_log("NameOwnerChanged failed to parse message: ");
    set_temperature("61");
    wait_for_output("false");
    close();
    EXPECT_THAT(
        events("log"),
        ElementsAre(log_event(2, "NameOwnerChanged failed to parse message: " + no_such_device),
                    verdict_log("false")));
}

TEST_F(MonitorFailuresTest, TakesARefusedMatchForSignalsAsInstalledAndHearsNothing) {
    if (on_dbus_broker())
        GTEST_SKIP() << matches_of_a_user;
    start_registered({.bus_xml = max_matches(1)});
    set_temperature("61");
    wait_for_camera("\"member\":\"TemperatureSignal\"");
    close();
    EXPECT_THAT(events(), are(judges("true")));
}

}  // namespace
}  // namespace test
