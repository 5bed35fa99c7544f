#include <gmock/gmock.h>

#include "tests/integration/blocks/monitor_scene.hpp"

namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

using MonitorTest = MonitorScene;

TEST_F(MonitorTest, FollowsTheTemperatureOverItsLimits) {
    open();
    start_registered_host();
    camera({"set", "temperature.main", "61"});
    wait_for_output("false");
    // Back into the band, but not yet to where it goes on again.
    camera({"set", "temperature.main", "55"});
    camera({"set", "temperature.main", "50"});
    wait_for_output("true");
    camera({"set", "temperature.main", "5"});
    wait_for_output("false");
    camera({"set", "temperature.main", "10.5"});
    wait_for_output("true");
    close();

    EXPECT_THAT(traffic(), ElementsAreArray(host_connects + reads_first("36.5") + matches +
                                            registers_limits() +
                                            Lines{"service signals: TemperatureSignal(4)",
                                                  "service signals: TemperatureSignal(2)",
                                                  "service signals: TemperatureSignal(3)",
                                                  "service signals: TemperatureSignal(1)"} +
                                            monitor_leaves));
    EXPECT_THAT(events(),
                ElementsAre(setup_event("true"), verdict_event("true"), ready_event,
                            verdict_log("false"), verdict_event("false"), verdict_log("true"),
                            verdict_event("true"), verdict_log("false"), verdict_event("false"),
                            verdict_log("true"), verdict_event("true"), exit_event));
    EXPECT_EQ(ended().code, 0);
    EXPECT_EQ(ended().err, "");
}

TEST_F(MonitorTest, StartsInHighHeatWithAFalseVerdict) {
    open();
    camera({"set", "temperature.main", "75"});
    start_registered_host();
    camera({"set", "temperature.main", "20"});
    wait_for_output("true");
    close();

    EXPECT_THAT(traffic(),
                ElementsAreArray(host_connects + reads_first("75.0") + matches +
                                 registers_limits(1, "x--x") +
                                 Lines{"service signals: TemperatureSignal(2)"} + monitor_leaves));
    EXPECT_THAT(events(), ElementsAre(setup_event("false"), verdict_event("false"), ready_event,
                                      verdict_log("true"), verdict_event("true"), exit_event));
}

TEST_F(MonitorTest, CountsAReadingOnTheLowerOffLimitAsOutside) {
    open();
    camera({"set", "temperature.main", "5"});
    start_registered_host();
    close();
    EXPECT_THAT(events(),
                ElementsAre(setup_event("false"), verdict_event("false"), ready_event, exit_event));
}

TEST_F(MonitorTest, CountsAReadingOnTheUpperOffLimitAsInside) {
    open();
    camera({"set", "temperature.main", "60"});
    start_registered_host();
    close();
    EXPECT_THAT(events(),
                ElementsAre(setup_event("true"), verdict_event("true"), ready_event, exit_event));
}

TEST_F(MonitorTest, JudgesBeforeItHasRegisteredThatALimitWasCrossedMeanwhile) {
    open();
    // The reply that is late leaves time to heat up between the first reading and the limits.
    camera({"fail", "RegisterForTemperatureSignal", "--times", "1", "--delay", "700"});
    start_host();
    wait_for_camera("\"member\":\"RegisterForTemperatureSignal\"");
    camera({"set", "temperature.main", "70"});
    wait_for_output("false");
    close();
    EXPECT_THAT(events(), ElementsAre(setup_event("true"), verdict_event("true"), ready_event,
                                      verdict_log("false"), verdict_event("false"), exit_event));
    EXPECT_THAT(traffic(), ElementsAreArray(host_connects + reads_first("36.5") + matches +
                                            registers_limits(1, "x--x") + monitor_leaves));
}

TEST_F(MonitorTest, BringsAnAbsentServiceUpWhereCallsDo) {
    open({.activation = true, .without = {"temperature"}});
    start_registered_host();
    camera({"set", "temperature.main", "61"});
    wait_for_output("false");
    close();
    EXPECT_THAT(events(), ElementsAre(setup_event("true"), verdict_event("true"), ready_event,
                                      verdict_log("false"), verdict_event("false"), exit_event));
}

TEST_F(MonitorTest, RegistersItsLimitsAgainWhenTheServiceIsLostAndComesBackByTheCall) {
    open({.activation = true});
    start_registered_host();
    camera({"stop", "temperature"});
    wait_for_replies("RegisterForTemperatureSignal", 4);
    camera({"set", "temperature.main", "61"});
    wait_for_output("false");
    close();

    EXPECT_THAT(
        traffic(),
        ElementsAreArray(
            host_connects + reads_first("36.5") + matches + registers_limits() +
            Lines{
                R"(daemon signals: NameOwnerChanged("com.tarlo.TemperatureController", "service", ""))",
                R"(client calls service: RegisterForTemperatureSignal(3, 10.0, true))",
                R"(daemon signals: NameOwnerChanged("com.tarlo.TemperatureController", "", "service 2"))",
            } +
            [] {
                Lines rest = registers_limits(5, "xx--", "service 2");
                rest.erase(rest.begin());
                return rest;
            }() +
            Lines{"service 2 signals: TemperatureSignal(8)"} + monitor_leaves));
    EXPECT_THAT(events(), ElementsAre(setup_event("true"), verdict_event("true"), ready_event,
                                      verdict_log("false"), verdict_event("false"), exit_event));
}

TEST_F(MonitorTest, RegistersAgainWhenAnyClientClaimsThatTheOwnerIsLost) {
    open();
    start_registered_host();
    const common::BusPtr other = common::open_bus(address(), std::chrono::seconds(5));
    ASSERT_GE(sd_bus_emit_signal(other.get(), "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                 "NameOwnerChanged", "sss", "com.tarlo.TemperatureController",
                                 ":1.1", ""),
              0);
    ASSERT_GE(sd_bus_flush(other.get()), 0);
    wait_for_replies("RegisterForTemperatureSignal", 4);
    // The first registrations are still there: their ids are not known any more.
    camera({"set", "temperature.main", "61"});
    wait_for_output("false");
    close();
    EXPECT_THAT(events(), ElementsAre(setup_event("true"), verdict_event("true"), ready_event,
                                      log_event(4,
                                                "Got unexpected temperature signal with id = "
                                                "4\n"),
                                      verdict_log("false"), verdict_event("false"), exit_event));
}

TEST_F(MonitorTest, NamesASignalThatBelongsToNobody) {
    open();
    start_registered_host();
    // Another client's limit: the signals are broadcast.
    const common::BusPtr other = common::open_bus(address(), std::chrono::seconds(5));
    const char* const name = "com.tarlo.TemperatureController";
    ASSERT_GE(
        sd_bus_call_method(other.get(), name, "/com/tarlo/TemperatureController", name,
                           "RegisterForTemperatureSignal", nullptr, nullptr, "idb", 3, 40.0, 1),
        0);
    camera({"set", "temperature.main", "41"});
    wait_for_log("Got unexpected");
    close();
    EXPECT_THAT(events(), ElementsAre(setup_event("true"), verdict_event("true"), ready_event,
                                      log_event(4,
                                                "Got unexpected temperature signal with id = "
                                                "5\n"),
                                      exit_event));
}

TEST_F(MonitorTest, IsContentWithEverythingWithoutLimits) {
    open({.graph = monitor_with("")});
    camera({"set", "temperature.main", "nan"});
    start_registered_host();
    camera({"set", "temperature.main", "990"});
    camera({"set", "temperature.main", "-990"});
    close();
    EXPECT_THAT(events(),
                ElementsAre(setup_event("true"), verdict_event("true"), ready_event, exit_event));
}

TEST_F(MonitorTest, TakesLimitsAsFloats) {
    // 36.6 as a float is a little less than the sensor's 36.6.
    open({.graph = monitor_with("high_off_temp = 36.6\n")});
    camera({"set", "temperature.main", "36.6"});
    start_registered_host();
    close();
    EXPECT_THAT(events(),
                ElementsAre(setup_event("false"), verdict_event("false"), ready_event, exit_event));
    const Lines lines = traffic();
    EXPECT_EQ(std::count(lines.begin(), lines.end(),
                         "client calls service: RegisterForTemperatureSignal(3, "
                         "36.599998474121094, true)"),
              1);
}

}  // namespace
}  // namespace test
