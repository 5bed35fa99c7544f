#include "tests/integration/blocks/monitor_scene.hpp"

namespace test {
namespace {

using MonitorTest = MonitorScene;

TEST_F(MonitorTest, FollowsTheTemperatureOverItsLimits) {
    start_registered();
    set_temperature("61");
    wait_for_output("false");
    // Back into the band, but not yet to where it goes on again.
    set_temperature("55");
    set_temperature("50");
    wait_for_output("true");
    set_temperature("5");
    wait_for_output("false");
    set_temperature("10.5");
    wait_for_output("true");
    close();
    EXPECT_THAT(traffic(), are(host_connects + reads_first("36.5") + matches + registers_limits() +
                               crosses(4) + crosses(2) + crosses(3) + crosses(1) + monitor_leaves));
    EXPECT_THAT(events(), are(judges("true", {"false", "true", "false", "true"})));
    expect_ended_well();
}

/// A temperature at the start, and the verdict on it.
struct Start {
    const char* name;
    const char* temperature;
    const char* verdict;
    std::string graph{};
};
void PrintTo(const Start& start, std::ostream* out) {
    *out << start.name;
}

class MonitorStart : public MonitorScene, public ::testing::WithParamInterface<Start> {};

TEST_P(MonitorStart, JudgesTheFirstReadingAndNoLimitChangesThat) {
    open({.graph = GetParam().graph});
    set_temperature(GetParam().temperature);
    start_host();
    wait_until_registered();
    close();
    EXPECT_THAT(events(), are(judges(GetParam().verdict)));
}

INSTANTIATE_TEST_SUITE_P(
    At, MonitorStart,
    ::testing::Values(Start{"TheLowerOffLimit", "5", "false"},
                      Start{"TheUpperOffLimit", "60", "true"},
                      // 36.6 as a float is a little less than the sensor's 36.6.
                      Start{"ALimitThatIsTakenAsAFloat", "36.6", "false",
                            monitor_with("high_off_temp = 36.6\n")},
                      Start{"NanWithoutLimits", "nan", "true", monitor_with("")}),
    [](const auto& start) { return start.param.name; });

TEST_F(MonitorTest, StartsInHighHeatWithAFalseVerdict) {
    open();
    set_temperature("75");
    start_host();
    wait_until_registered();
    set_temperature("20");
    wait_for_output("true");
    close();
    EXPECT_THAT(traffic(), are(host_connects + reads_first("75.0") + matches +
                               registers_limits(1, "x--x") + crosses(2) + monitor_leaves));
    EXPECT_THAT(events(), are(judges("false", {"true"})));
}

TEST_F(MonitorTest, JudgesBeforeItHasRegisteredThatALimitWasCrossedMeanwhile) {
    // The reply that is late leaves time to heat up between the first reading and the limits.
    start_with_fault({"RegisterForTemperatureSignal", "--times", "1", "--delay", "700"});
    wait_for_camera("\"member\":\"RegisterForTemperatureSignal\"");
    set_temperature("70");
    wait_for_output("false");
    close();
    EXPECT_THAT(events(), are(judges("true", {"false"})));
    EXPECT_THAT(traffic(), are(host_connects + reads_first("36.5") + matches +
                               registers_limits(1, "x--x") + monitor_leaves));
}

TEST_F(MonitorTest, BringsAnAbsentServiceUpWhereCallsDo) {
    start_registered({.activation = true, .without = {"temperature"}});
    set_temperature("61");
    wait_for_output("false");
    close();
    EXPECT_THAT(events(), are(judges("true", {"false"})));
}

TEST_F(MonitorTest, RegistersItsLimitsAgainWhenTheServiceIsLostAndComesBackByTheCall) {
    start_registered({.activation = true});
    handle({"stop", "temperature"});
    wait_until_registered();
    set_temperature("61");
    wait_for_output("false");
    close();
    Lines again = registers_limits(5, "xx--", "service 2");
    again.insert(again.begin() + 1, owner_change("", "service 2"));
    EXPECT_THAT(traffic(), are(host_connects + reads_first("36.5") + matches + registers_limits() +
                               Lines{owner_change("service", "")} + again +
                               crosses(8, "service 2") + monitor_leaves));
    EXPECT_THAT(events(), are(judges("true", {"false"})));
}

TEST_F(MonitorTest, RegistersAgainWhenAnyClientClaimsThatTheOwnerIsLost) {
    start_registered();
    emit_owner_change("sss", "com.tarlo.TemperatureController", ":1.1", "");
    wait_until_registered();
    // The first registrations are still there: their ids are not known any more.
    set_temperature("61");
    wait_for_output("false");
    close();
    EXPECT_THAT(events("log"),
                ElementsAre(log_event(4, "Got unexpected temperature signal with id = 4\n"),
                            verdict_log("false")));
    EXPECT_THAT(events("output"), ElementsAre(verdict_event("true"), verdict_event("false")));
}

TEST_F(MonitorTest, NamesASignalThatBelongsToNobody) {
    start_registered();
    // Another client's limit, which is the client's for as long as it is there.
    const common::BusPtr other = common::open_bus(address(), std::chrono::seconds(5));
    const char* const name = "com.tarlo.TemperatureController";
    ASSERT_GE(
        sd_bus_call_method(other.get(), name, "/com/tarlo/TemperatureController", name,
                           "RegisterForTemperatureSignal", nullptr, nullptr, "idb", 3, 40.0, 1),
        0);
    set_temperature("41");
    wait_for_log("Got unexpected");
    close();
    EXPECT_THAT(events(), are(judges_and_logs("true", log_event(4,
                                                                "Got unexpected temperature signal "
                                                                "with id = 5\n"))));
}

TEST_F(MonitorTest, IsContentWithEverythingWithoutLimits) {
    start_registered({.graph = monitor_with("")});
    set_temperature("990");
    set_temperature("-990");
    close();
    EXPECT_THAT(events(), are(judges("true")));
}

TEST_F(MonitorTest, RegistersItsLimitsAsFloats) {
    start_registered({.graph = monitor_with("high_off_temp = 36.6\n")});
    close();
    EXPECT_EQ(
        count("client calls service: RegisterForTemperatureSignal(3, 36.599998474121094, true)"),
        1);
}

}  // namespace
}  // namespace test
