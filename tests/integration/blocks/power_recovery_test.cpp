#include <gmock/gmock.h>

#include "tests/integration/blocks/power_consumer_scene.hpp"
#include "tests/integration/blocks/power_monitor_scene.hpp"

namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;

constexpr int crashes = 200;

std::ptrdiff_t count_of(const Lines& lines, const std::string& line) {
    return std::ranges::count(lines, line);
}

using PowerConsumerRecoveryTest = ConsumerScene;

TEST_F(PowerConsumerRecoveryTest,
       IsRegisteredAndRightAfterEachCrashOfAControllerThatCallsBringBack) {
    open({.activation = true});
    start_host();
    wait_for_output("4.5");
    for (int crash = 0; crash < crashes && !HasFatalFailure(); ++crash) {
        SCOPED_TRACE(crash);
        camera({"stop", "power-consumer"});
        wait_for_replies("RequestPower");
        const std::string budget = crash % 2 == 0 ? "2.5" : "3.5";
        camera({"set", "power.budget", budget});
        wait_for_output(budget);
    }
    close();
    EXPECT_EQ(count_of(traffic(), register_call), crashes + 1);
    EXPECT_EQ(count_of(traffic(), request_call), crashes + 1);
    EXPECT_THAT(events("log"), SizeIs(1 + 2 * crashes)) << "one line of its own, two a crash";
}

TEST_F(PowerConsumerRecoveryTest, IsSilentAfterEachCrashOfAControllerThatCallsDoNotBringBack) {
    open();
    start_host();
    wait_for_output("4.5");
    for (int crash = 0; crash < crashes && !HasFatalFailure(); ++crash) {
        SCOPED_TRACE(crash);
        camera({"stop", "power-consumer"});
        // The loss, and the refusals of both calls, each run the block.
        for (int run = 0; run < 3; ++run)
            wait_for_output("4.5");
        camera({"start", "power-consumer"});
        wait_for_log("Owner of 'com.tarlo.PowerControl.Consumer' changed from ''");
        camera({"set", "power.budget", crash % 2 == 0 ? "2.5" : "3.5"});
        wait_for_camera("\"event\":\"set\"");
    }
    close();
    const Lines lines = traffic();
    EXPECT_EQ(count_of(lines, register_call), crashes + 1);
    EXPECT_EQ(count_of(lines, request_call), crashes + 1);
    EXPECT_EQ(std::ranges::count_if(lines,
                                    [](const std::string& line) {
                                        return line.find("calls client: SetPower") !=
                                               std::string::npos;
                                    }),
              1)
        << "only the first controller ever knew the consumer";
}

using PowerMonitorRecoveryTest = PowerMonitorScene;

TEST_F(PowerMonitorRecoveryTest, IsRightAfterEachCrashOfAServiceThatAnyCallBringsBack) {
    open({.activation = true});
    start_host();
    wait_for_replies("Get", 2);
    const common::BusPtr other = common::open_bus(address(), std::chrono::seconds(20));
    const char* const name = "com.tarlo.PowerControl.Status";
    for (int crash = 0; crash < crashes && !HasFatalFailure(); ++crash) {
        SCOPED_TRACE(crash);
        camera({"stop", "power-status"});
        // The monitor asks nothing more, so somebody else has to.
        double power = 0.0;
        ASSERT_GE(sd_bus_get_property_trivial(other.get(), name, "/com/tarlo/PowerControl/Status",
                                              name, "PowerReceived", nullptr, 'd', &power),
                  0);
        camera({"set", "power.received", crash % 2 == 0 ? "3" : "30"});
        wait_for_camera("\"member\":\"PropertiesChanged\"");
        wait_for_output(crash % 2 == 0 ? "false" : "true");
    }
    close();
    EXPECT_THAT(events("log"), ElementsAre());
    EXPECT_THAT(events("output"), SizeIs(3 + crashes));
}

TEST_F(PowerMonitorRecoveryTest, HearsChangesAfterEachCrashAlsoWhereNoCallBringsTheServiceBack) {
    open();
    start_host();
    wait_for_replies("Get", 2);
    for (int crash = 0; crash < crashes && !HasFatalFailure(); ++crash) {
        SCOPED_TRACE(crash);
        camera({"stop", "power-status"});
        camera({"start", "power-status"});
        camera({"set", "power.received", crash % 2 == 0 ? "3" : "30"});
        wait_for_camera("\"member\":\"PropertiesChanged\"");
        wait_for_output(crash % 2 == 0 ? "false" : "true");
    }
    close();
    EXPECT_EQ(count_of(traffic(), get_call), 2) << "it asks for the value at the start only";
    EXPECT_THAT(events("output"), SizeIs(3 + crashes));
}

}  // namespace
}  // namespace test
