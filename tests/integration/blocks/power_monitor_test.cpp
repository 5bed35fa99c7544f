#include <gmock/gmock.h>

#include "tests/integration/blocks/power_monitor_scene.hpp"

namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

using PowerMonitorTest = PowerMonitorScene;

const Lines first_outcomes{outcome_event("true"), outcome_event("true"), outcome_event("true")};
const Lines starts = host_connects + gets("25.0") + adds_match(property_rule) + gets("25.0");

TEST_F(PowerMonitorTest, FollowsThePowerThatIsReceived) {
    open();
    start_host();
    wait_for_replies("Get", 2);
    camera({"set", "power.received", "11.875"});
    wait_for_output("false");
    camera({"set", "power.received", "12"});
    wait_for_output("true");
    camera({"set", "power.received", "nan"});
    wait_for_output("false");
    close();

    EXPECT_THAT(traffic(), ElementsAreArray(starts + changes("11.875") + changes("12.0") +
                                            changes("\"nan\"") + power_monitor_leaves));
    // The match, the question and the answer each run the block, which publishes what it knows.
    EXPECT_THAT(events(),
                ElementsAreArray(Lines{power_setup_event("true"), ready_event} + first_outcomes +
                                 Lines{outcome_event("false"), outcome_event("true"),
                                       outcome_event("false"), exit_event}));
    EXPECT_EQ(ended().code, 0);
    EXPECT_EQ(ended().err, "");
}

TEST_F(PowerMonitorTest, StartsWithTooLittlePower) {
    open();
    camera({"set", "power.received", "3"});
    start_host();
    wait_for_replies("Get", 2);
    camera({"set", "power.received", "30"});
    wait_for_output("true");
    close();
    EXPECT_EQ(events().front(), power_setup_event("false"));
}

TEST_F(PowerMonitorTest, BringsAnAbsentServiceUpWhereCallsDo) {
    open({.activation = true, .without = {"power-status"}});
    start_host();
    wait_for_replies("Get", 2);
    camera({"set", "power.received", "1"});
    wait_for_output("false");
    close();
    EXPECT_THAT(events(),
                ElementsAreArray(Lines{power_setup_event("true"), ready_event} + first_outcomes +
                                 Lines{outcome_event("false"), exit_event}));
}

TEST_F(PowerMonitorTest, LeavesTheLastOutcomeStandingWhenTheServiceIsLost) {
    open();
    start_host();
    wait_for_replies("Get", 2);
    camera({"stop", "power-status"});
    camera({"set", "power.received", "1"});
    camera({"start", "power-status"});
    // The service says nothing when it comes, only when something changes.
    camera({"set", "power.received", "2"});
    wait_for_output("false");
    close();

    const std::string owner_changed =
        R"(daemon signals: NameOwnerChanged("com.tarlo.PowerControl.Status", )";
    EXPECT_THAT(traffic(), ElementsAreArray(starts +
                                            Lines{owner_changed + R"("service", ""))",
                                                  owner_changed + R"("", "service 2"))"} +
                                            changes("2.0", "service 2") + power_monitor_leaves));
    EXPECT_THAT(events(),
                ElementsAreArray(Lines{power_setup_event("true"), ready_event} + first_outcomes +
                                 Lines{outcome_event("false"), exit_event}));
}

TEST_F(PowerMonitorTest, BelievesAnyClientAndAnyInterface) {
    open();
    start_host();
    wait_for_replies("Get", 2);
    const common::BusPtr other = common::open_bus(address(), std::chrono::seconds(5));
    ASSERT_GE(sd_bus_emit_signal(other.get(), "/com/tarlo/PowerControl/Status",
                                 "org.freedesktop.DBus.Properties", "PropertiesChanged", "sa{sv}as",
                                 "com.example.Stranger", 1, "PowerReceived", "d", 1.0, 0),
              0);
    ASSERT_GE(sd_bus_flush(other.get()), 0);
    wait_for_output("false");
    close();
    EXPECT_THAT(events("log"), ElementsAre());
}

/// Two monitors in one host. Each callback of such a block ends the delivery of its message to the
/// matches that were installed before, so only the last one hears of changes.
TEST_F(PowerMonitorTest, IsDeafWhereASecondOneIsInTheSameHost) {
    open({.graph = "[blocks.monitor]\ntype = \"PowerMonitor\"\nrequested_power = 12\n"
                   "[blocks.second]\ntype = \"PowerMonitor\"\nrequested_power = 13\n"});
    start_host();
    wait_for_replies("Get", 4);
    camera({"set", "power.received", "5"});
    wait_for_output("false");
    camera({"set", "power.received", "20"});
    wait_for_output("true");
    close();

    Lines first;
    Lines second;
    for (const std::string& line : events("output"))
        (line.find(R"("block":"monitor")") != std::string::npos ? first : second).push_back(line);
    EXPECT_THAT(first, ElementsAreArray(first_outcomes));
    const auto outcome = [](const std::string& value) {
        return output_event("second.power_ok_out", "bool", value);
    };
    EXPECT_THAT(second, ElementsAre(outcome("true"), outcome("true"), outcome("true"),
                                    outcome("false"), outcome("true")));
}

}  // namespace
}  // namespace test
