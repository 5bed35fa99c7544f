#include "tests/integration/blocks/power_monitor_scene.hpp"

namespace test {
namespace {

using PowerMonitorTest = PowerMonitorScene;

TEST_F(PowerMonitorTest, FollowsThePowerThatIsReceived) {
    start_settled();
    set_power("11.875");
    wait_for_output("false");
    set_power("12");
    wait_for_output("true");
    set_power("nan");
    wait_for_output("false");
    close();
    EXPECT_THAT(traffic(), are(power_monitor_starts + changes("11.875") + changes("12.0") +
                               changes("\"nan\"") + power_monitor_leaves));
    EXPECT_THAT(events(), are(power_events({"false", "true", "false"})));
    expect_ended_well();
}

TEST_F(PowerMonitorTest, StartsWithTooLittlePower) {
    open();
    set_power("3");
    start_host();
    wait_for_replies("Get", 2);
    set_power("30");
    wait_for_output("true");
    close();
    EXPECT_EQ(events().front(), verdict_setup_event("power_ok", "power_monitor_in", "false"));
}

TEST_F(PowerMonitorTest, BringsAnAbsentServiceUpWhereCallsDo) {
    start_settled({.activation = true, .without = {"power-status"}});
    set_power("1");
    wait_for_output("false");
    close();
    EXPECT_THAT(events(), are(power_events({"false"})));
}

TEST_F(PowerMonitorTest, LeavesTheLastOutcomeStandingWhenTheServiceIsLost) {
    start_settled();
    handle({"stop", "power-status"});
    set_power("1");
    handle({"start", "power-status"});
    // The service says nothing when it comes, only when something changes.
    set_power("2");
    wait_for_output("false");
    close();
    EXPECT_THAT(traffic(), are(power_monitor_starts +
                               Lines{owner_change("service", ""), owner_change("", "service 2")} +
                               changes("2.0", "service 2") + power_monitor_leaves));
    EXPECT_THAT(events(), are(power_events({"false"})));
}

TEST_F(PowerMonitorTest, BelievesAnyClientAndAnyInterface) {
    start_settled();
    emit_change("sa{sv}as", "com.example.Stranger", 1, "PowerReceived", "d", 1.0, 0);
    wait_for_output("false");
    close();
    EXPECT_THAT(events("log"), ElementsAre());
}

/// Two monitors in one host. Each callback of such a block ends the delivery of its message to the
/// matches that were installed before, so only the last one hears of changes.
TEST_F(PowerMonitorTest, IsDeafWhereASecondOneIsInTheSameHost) {
    start({.graph =
               power_monitor + "[blocks.second]\ntype = \"PowerMonitor\"\nrequested_power = 13\n"});
    wait_for_replies("Get", 4);
    set_power("5");
    wait_for_output("false");
    set_power("20");
    wait_for_output("true");
    close();
    EXPECT_THAT(with(R"("block":"monitor")", events("output")), are(first_outcomes));
    EXPECT_THAT(with(R"("block":"second")", events("output")),
                are(outcomes({"true", "true", "true", "false", "true"}, "second")));
}

using PowerMonitorFailuresTest = PowerMonitorScene;

const std::string constructor_line =
    "Failed to get PowerReceived from com.tarlo.PowerControl.Status. ";
const std::string no_reply_log = log_event(1, "Failed to get PowerReceived from dbus reply.\n");
const std::string query_line = "Failed to read value of PowerReceived: ";
const Lines query_log{log_event(1, query_line + no_such_device)};

TEST_F(PowerMonitorFailuresTest, AsksElevenTimesForAServiceThatIsAbsentAndAgainWithEachChange) {
    start({.without = {"power-status"}});
    wait_for_log(query_line, 11);
    handle({"start", "power-status"});
    set_power("20");
    wait_for_output("true", 2);
    close();
    const Lines asks{get_call, refused_by_daemon()};
    EXPECT_THAT(traffic(), are(host_connects + asks + adds_match(property_rule) + 11 * asks +
                               Lines{owner_change("", "service")} + changes("20.0") + gets("20.0") +
                               power_monitor_leaves));
    EXPECT_THAT(
        events("log"),
        are(Lines{log_event(1, constructor_line +
                                   "org.freedesktop.DBus.Error.ServiceUnknown: " + nobody_there()),
                  no_reply_log} +
            11 * query_log));
    // Two runs for the match, one for each failure but the last, one each for change and value.
    EXPECT_THAT(events("output"), are(12 * outcomes({"false"}) + 2 * outcomes({"true"})));
}

class PowerMonitorReadTest : public PowerMonitorScene,
                             public ::testing::WithParamInterface<Mishap> {};

TEST_P(PowerMonitorReadTest, AsksAgainUntilItIsAnswered) {
    // Once while the monitor is built, and three times afterwards.
    start_with_fault(Lines{"PowerReceived", "--times", "4"} + GetParam().fault,
                     {.host_options = {"--call-timeout", "0.3"}});
    wait_for_output("true");
    close();
    const Lines asks = Lines{get_call} + GetParam().answer;
    EXPECT_THAT(traffic(), are(host_connects + asks + adds_match(property_rule) + 3 * asks +
                               gets("25.0") + power_monitor_leaves));
    Lines log = events("log");
    ASSERT_FALSE(log.empty());
    EXPECT_THAT(log.front(),
                StartsWith(R"({"event":"log","level":1,"message":")" + constructor_line));
    log.erase(log.begin());
    EXPECT_THAT(log, are(Lines{no_reply_log} + 3 * query_log));
}

INSTANTIATE_TEST_SUITE_P(After, PowerMonitorReadTest,
                         ::testing::Values(an_error, another_type, no_answer), mishap_name);

TEST_F(PowerMonitorFailuresTest, AsksAgainWhenTheServiceDiesWithTheQuestionPending) {
    // The first read is right, the second one finds the service dying.
    start_settled();
    end_host();
    fail({"PowerReceived", "--times", "1", "--drop"});
    start_host();
    wait_for_log(query_line, 11);
    end_host();
    EXPECT_EQ(ended().code, 0);
}

/// A signal of the right name with a body of a stranger's making.
class OddSignalTest : public PowerMonitorScene {
  protected:
    void SetUp() override { start_settled(); }

    /// The monitor publishes these verdicts, leaves this log, and follows the service still.
    void expect_following(const Lines& verdicts, const Lines& log = {}) {
        for (const std::string& verdict : verdicts)
            wait_for_output(verdict);
        set_power("1");
        wait_for_output("false");
        close();
        EXPECT_THAT(events("log"), are(log));
        EXPECT_THAT(events("output"),
                    are(first_outcomes + outcomes(verdicts) + outcomes({"false"})));
    }
};

TEST_F(OddSignalTest, IsLoggedWhereItHoldsNoDictionary) {
    emit_change("s", "com.tarlo.PowerControl.Status");
    wait_for_log("Failed to enter container");
    expect_following({}, {log_event(1, "Failed to enter container\n")});
}

TEST_F(OddSignalTest, PublishesAgainWhereItLacksTheProperty) {
    emit_change("sa{sv}as", "x", 2, "First", "ai", 2, 1, 2, "Second", "s", "two", 0);
    expect_following({"true"});
}

TEST_F(OddSignalTest, IsPassedOverWhereTheValueIsOfAnotherType) {
    emit_change("sa{sv}as", "x", 1, "PowerReceived", "i", 1, 0);
    expect_following({"true"});
}

TEST_F(OddSignalTest, IsReadNoFurtherThanTheFirstValueOfTheProperty) {
    emit_change("sa{sv}as", "x", 3, "Before", "b", 1, "PowerReceived", "d", 2.0, "PowerReceived",
                "d", 30.0, 0);
    expect_following({"false"});
}

TEST_F(PowerMonitorFailuresTest, TakesARefusedMatchAsInstalled) {
    start({.bus_xml = max_matches(0), .camera_there = false});
    wait_for_log(query_line);
    end_host();
    EXPECT_EQ(ended().code, 0);
    EXPECT_EQ(events("log").at(2), query_log[0]);
}

}  // namespace
}  // namespace test
