#include <gmock/gmock.h>

#include "tests/integration/blocks/power_monitor_scene.hpp"

namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::StartsWith;

using PowerMonitorFailuresTest = PowerMonitorScene;

const std::string constructor_line =
    "Failed to get PowerReceived from com.tarlo.PowerControl.Status. ";
const std::string no_reply_line = "Failed to get PowerReceived from dbus reply.\n";
const std::string nobody_there =
    "org.freedesktop.DBus.Error.ServiceUnknown: The name com.tarlo.PowerControl.Status was not "
    "provided by any .service files";
const std::string query_line =
    log_event(1, "Failed to read value of PowerReceived: No such device or address");

TEST_F(PowerMonitorFailuresTest, AsksElevenTimesForAServiceThatIsAbsentAndAgainWithEachChange) {
    open({.without = {"power-status"}});
    start_host();
    for (int failures = 0; failures < 11; ++failures)
        wait_for_log("Failed to read value of PowerReceived: ");
    camera({"start", "power-status"});
    camera({"set", "power.received", "20"});
    wait_for_output("true");
    wait_for_output("true");
    close();

    const std::string refused =
        "daemon refuses client: org.freedesktop.DBus.Error.ServiceUnknown("
        "\"The name com.tarlo.PowerControl.Status was not provided by any .service files\")";
    Lines asked_in_vain;
    for (int i = 0; i < 11; ++i)
        asked_in_vain = asked_in_vain + Lines{get_call, refused};
    EXPECT_THAT(
        traffic(),
        ElementsAreArray(
            host_connects + Lines{get_call, refused} + adds_match(property_rule) + asked_in_vain +
            Lines{
                R"(daemon signals: NameOwnerChanged("com.tarlo.PowerControl.Status", "", "service"))"} +
            changes("20.0") + gets("20.0") + power_monitor_leaves));
    EXPECT_THAT(events("log"), ElementsAreArray(Lines{log_event(1, constructor_line + nobody_there),
                                                      log_event(1, no_reply_line)} +
                                                Lines(11, query_line)));
    // Two runs for the match, one for each failure but the last, one each for change and value.
    EXPECT_THAT(events("output"), ElementsAreArray(Lines(12, outcome_event("false")) +
                                                   Lines(2, outcome_event("true"))));
}

/// The monitor is answered so, once while it is built and `times` times afterwards, and then well.
Lines asks_again_after(const Lines& answer, int times) {
    Lines again;
    for (int i = 0; i < times; ++i)
        again = again + Lines{get_call} + answer;
    return host_connects + Lines{get_call} + answer + adds_match(property_rule) + again +
           gets("25.0") + power_monitor_leaves;
}

TEST_F(PowerMonitorFailuresTest, GetsOverAFewErrors) {
    open();
    camera({"fail", "PowerReceived", "--times", "4", "--error", "com.tarlo.Broken"});
    start_host();
    wait_for_output("true");
    close();
    EXPECT_THAT(traffic(),
                ElementsAreArray(asks_again_after({"service refuses client: com.tarlo.Broken(\"A "
                                                   "fault rule answers this call.\")"},
                                                  3)));
    EXPECT_THAT(events("log"),
                ElementsAre(StartsWith(R"({"event":"log","level":1,"message":")" +
                                       constructor_line + "com.tarlo.Broken: "),
                            log_event(1, no_reply_line), query_line, query_line, query_line));
}

TEST_F(PowerMonitorFailuresTest, GetsOverAValueOfAnotherType) {
    open();
    camera({"fail", "PowerReceived", "--times", "2", "--malformed"});
    start_host();
    wait_for_output("true");
    close();
    EXPECT_THAT(traffic(), ElementsAreArray(asks_again_after(
                               {"service replies to client: (\"malformed\")"}, 1)));
    EXPECT_THAT(events("log"), ElementsAre(StartsWith(R"({"event":"log","level":1,"message":")" +
                                                      constructor_line),
                                           log_event(1, no_reply_line), query_line));
}

TEST_F(PowerMonitorFailuresTest, GetsOverAnAnswerThatNeverComes) {
    open({.host_options = {"--call-timeout", "0.4"}});
    camera({"fail", "PowerReceived", "--times", "2", "--silent"});
    start_host();
    wait_for_output("true");
    close();
    EXPECT_THAT(traffic(), ElementsAreArray(asks_again_after({}, 1)));
    EXPECT_THAT(events("log"), ElementsAre(StartsWith(R"({"event":"log","level":1,"message":")" +
                                                      constructor_line),
                                           log_event(1, no_reply_line), query_line));
}

TEST_F(PowerMonitorFailuresTest, AsksAgainWhenTheServiceDiesWithTheQuestionPending) {
    open();
    // The first read is right, the second one finds the service dying.
    start_host();
    wait_for_replies("Get", 2);
    end_host();
    camera({"fail", "PowerReceived", "--times", "1", "--drop"});
    start_host();
    for (int failures = 0; failures < 11; ++failures)
        wait_for_log("Failed to read value of PowerReceived: ");
    end_host();
    EXPECT_EQ(ended().code, 0);
}

/// A signal of the right name with a body of the stranger's making.
class OddSignalTest : public PowerMonitorFailuresTest {
  protected:
    void SetUp() override {
        open();
        start_host();
        wait_for_replies("Get", 2);
        other_ = common::open_bus(address(), std::chrono::seconds(5));
    }
    template <class... Arguments>
    void emit(const char* types, Arguments... arguments) {
        ASSERT_GE(sd_bus_emit_signal(other_.get(), "/com/tarlo/PowerControl/Status",
                                     "org.freedesktop.DBus.Properties", "PropertiesChanged", types,
                                     arguments...),
                  0);
        ASSERT_GE(sd_bus_flush(other_.get()), 0);
    }
    /// Whether the monitor still follows the service.
    void expect_well() {
        camera({"set", "power.received", "1"});
        wait_for_output("false");
        close();
    }

  private:
    common::BusPtr other_;
};

TEST_F(OddSignalTest, IsLoggedWhereItHoldsNoDictionary) {
    emit("s", "com.tarlo.PowerControl.Status");
    wait_for_log("Failed to enter container");
    expect_well();
    EXPECT_THAT(events("log"), ElementsAre(log_event(1, "Failed to enter container\n")));
    EXPECT_THAT(events("output"),
                ElementsAreArray(Lines(3, outcome_event("true")) + Lines{outcome_event("false")}));
}

TEST_F(OddSignalTest, PublishesAgainWhereItLacksTheProperty) {
    emit("sa{sv}as", "x", 2, "First", "ai", 2, 1, 2, "Second", "s", "two", 0);
    wait_for_output("true");
    expect_well();
    EXPECT_THAT(events("log"), ElementsAre());
    EXPECT_THAT(events("output"),
                ElementsAreArray(Lines(4, outcome_event("true")) + Lines{outcome_event("false")}));
}

TEST_F(OddSignalTest, IsPassedOverWhereTheValueIsOfAnotherType) {
    emit("sa{sv}as", "x", 1, "PowerReceived", "i", 1, 0);
    wait_for_output("true");
    expect_well();
    EXPECT_THAT(events("log"), ElementsAre());
    EXPECT_THAT(events("output"),
                ElementsAreArray(Lines(4, outcome_event("true")) + Lines{outcome_event("false")}));
}

TEST_F(OddSignalTest, IsReadNoFurtherThanTheFirstValueOfTheProperty) {
    emit("sa{sv}as", "x", 3, "Before", "b", 1, "PowerReceived", "d", 2.0, "PowerReceived", "d",
         30.0, 0);
    wait_for_output("false");
    close();
    EXPECT_EQ(events("output").back(), outcome_event("false"));
}

TEST_F(PowerMonitorFailuresTest, TakesARefusedMatchAsInstalled) {
    open({.bus_xml = "<limit name=\"max_match_rules_per_connection\">0</limit>",
          .camera_there = false});
    start_host();
    wait_for_log("Failed to read value of PowerReceived: ");
    end_host();
    EXPECT_EQ(ended().code, 0);
    EXPECT_THAT(events("log").at(2), query_line);
}

}  // namespace
}  // namespace test
