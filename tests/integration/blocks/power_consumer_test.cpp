#include <gmock/gmock.h>

#include "tests/integration/blocks/power_consumer_scene.hpp"

namespace test {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::StartsWith;

using PowerConsumerTest = ConsumerScene;

constexpr std::chrono::seconds patience{5};

TEST_F(PowerConsumerTest, RegistersAsksAndPublishesWhatItIsGranted) {
    open();
    start_host();
    wait_for_output("4.5");
    camera({"set", "power.budget", "3.25"});
    wait_for_output("3.25");
    close();

    EXPECT_THAT(traffic(),
                ElementsAreArray(
                    consumer_starts() + registers + Lines{request_call} + granted("4.5") +
                    Lines{"service calls client: SetPower(3.25)", "client replies to service: ()"} +
                    consumer_leaves()));
    // Each of the answers runs the block, which publishes what it has.
    EXPECT_THAT(block_events(),
                ElementsAre(adding_log, ready_event, grant_event("0.0"), grant_event("0.0"),
                            grant_event("4.5"), grant_event("3.25"), exit_event));
    EXPECT_EQ(ended().code, 0);
    EXPECT_EQ(ended().err, "");
}

TEST_F(PowerConsumerTest, TakesItsNamesFromItsChannel) {
    open({.graph = consumer_with("channel = 7\npower = 2\n", "com.tarlo.Vipd.ch7")});
    start_host();
    wait_for_output("2.0");
    close();
    EXPECT_THAT(traffic(),
                AllOf(Contains(R"(client calls service: Register("vipd7", false, )"
                               R"("com.tarlo.Vipd.ch7", "/com/tarlo/Vipd/PowerConsumer", )"
                               R"("com.tarlo.Vipd.PowerConsumer"))"),
                      Contains(R"(client calls service: RequestPower("vipd7", "control", 2.0))"),
                      Contains(R"(client calls service: Unregister("vipd7"))")));
}

TEST_F(PowerConsumerTest, AsksForItsPowerAsAFloat) {
    open({.graph = consumer_with("power = 0.1\n", "com.tarlo.Vipd.ch0")});
    start_host();
    wait_for_output("0.10000000149011612");
    close();
    EXPECT_THAT(traffic(), Contains(R"(client calls service: RequestPower("vipd0", "control", )"
                                    "0.10000000149011612)"));
}

TEST_F(PowerConsumerTest, BringsAnAbsentControllerUpWhereCallsDo) {
    open({.activation = true, .without = {"power-consumer"}});
    start_host();
    wait_for_output("4.5");
    close();
    EXPECT_THAT(grants(), ElementsAre(grant_event("0.0"), grant_event("0.0"), grant_event("4.5")));
}

TEST_F(PowerConsumerTest, RegistersAgainAtOnceWhenTheControllerIsLost) {
    open({.activation = true});
    start_host();
    wait_for_output("4.5");
    camera({"stop", "power-consumer"});
    wait_for_replies("RequestPower", 2);
    camera({"set", "power.budget", "1"});
    wait_for_output("1.0");
    close();

    const std::string changed =
        R"(daemon signals: NameOwnerChanged("com.tarlo.PowerControl.Consumer", )";
    EXPECT_THAT(traffic(), ElementsAreArray(consumer_starts() + registers + Lines{request_call} +
                                            granted("4.5") + Lines{changed + R"("service", ""))"} +
                                            Lines{register_call, changed + R"("", "service 2"))",
                                                  "service 2 replies to client: ()", request_call} +
                                            granted("4.5", "service 2") +
                                            Lines{"service 2 calls client: SetPower(1.0)",
                                                  "client replies to service 2: ()"} +
                                            consumer_leaves()));
    EXPECT_THAT(events("log"), ElementsAre(adding_log,
                                           HasSubstr("Owner of 'com.tarlo.PowerControl.Consumer' "
                                                     "changed from ':1."),
                                           HasSubstr("Owner of 'com.tarlo.PowerControl.Consumer' "
                                                     "changed from '' to ':1.")));
}

TEST_F(PowerConsumerTest, RegistersAgainWhenAnyClientClaimsThatTheOwnerIsLost) {
    open();
    start_host();
    wait_for_output("4.5");
    const common::BusPtr other = common::open_bus(address(), patience);
    ASSERT_GE(
        sd_bus_emit_signal(other.get(), "/org/freedesktop/DBus", "org.freedesktop.DBus",
                           "NameOwnerChanged", "sss", "com.tarlo.PowerControl.Consumer", "x", ""),
        0);
    ASSERT_GE(sd_bus_flush(other.get()), 0);
    wait_for_replies("RequestPower", 2);
    close();
    EXPECT_THAT(events("log"),
                ElementsAre(adding_log, log_event(4,
                                                  "Owner of 'com.tarlo.PowerControl.Consumer' "
                                                  "changed from 'x' to ''")));
}

TEST_F(PowerConsumerTest, TakesPowerFromAnyCallerAsFarAsAFloatGoes) {
    open();
    start_host();
    wait_for_output("4.5");
    const common::BusPtr other = common::open_bus(address(), patience);
    const auto set_power = [&other](const char* types, auto value) {
        return sd_bus_call_method(other.get(), "com.tarlo.Vipd.ch0",
                                  "/com/tarlo/Vipd/PowerConsumer", "com.tarlo.Vipd.PowerConsumer",
                                  "SetPower", nullptr, nullptr, types, value);
    };
    EXPECT_GE(set_power("d", 1e300), 0);
    wait_for_output("\"inf\"");
    // sd-bus refuses another type before the block sees it.
    EXPECT_EQ(set_power("s", "much"), -EINVAL);
    EXPECT_GE(set_power("d", -0.5), 0);
    wait_for_output("-0.5");
    close();
    EXPECT_THAT(events("log"), ElementsAre(adding_log));
}

TEST_F(PowerConsumerTest, ShowsItsObjectToWhoeverLooks) {
    open();
    start_host();
    wait_for_output("4.5");
    const Ended seen = run_program({"busctl", "--address=" + address(), "introspect", "--list",
                                    "com.tarlo.Vipd.ch0", "/com/tarlo/Vipd/PowerConsumer",
                                    "com.tarlo.Vipd.PowerConsumer"});
    end_host();
    EXPECT_EQ(seen.code, 0) << seen.err;
    EXPECT_THAT(seen.out, ::testing::ContainsRegex("\\.SetPower +method +d +- +-"));
}

TEST_F(PowerConsumerTest, IsDroppedFromTheBudgetWhenItsHostStops) {
    open();
    start_host();
    wait_for_output("4.5");
    close();
    const Ended shown =
        run_program({FENWA_CAMERA_PROGRAM, "show", "--format", "json", "--bus", address()});
    EXPECT_EQ(shown.out.find("vipd0"), std::string::npos) << shown.out;
}

}  // namespace
}  // namespace test
