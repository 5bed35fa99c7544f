#include <gmock/gmock.h>

#include "tests/integration/blocks/power_consumer_scene.hpp"

namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::SizeIs;

using ConsumerFailuresTest = ConsumerScene;

const std::string refused_by_daemon =
    "daemon refuses client: org.freedesktop.DBus.Error.ServiceUnknown("
    "\"The name com.tarlo.PowerControl.Consumer was not provided by any .service files\")";
const std::string owner_changed =
    R"(daemon signals: NameOwnerChanged("com.tarlo.PowerControl.Consumer", )";

TEST_F(ConsumerFailuresTest, TakesAnAbsentControllerForOneThatHasAnswered) {
    open({.without = {"power-consumer"}});
    start_host();
    // The two refusals.
    wait_for_output("0.0");
    wait_for_output("0.0");
    camera({"start", "power-consumer"});
    wait_for_log("Owner of");
    camera({"set", "power.budget", "1"});
    close();

    EXPECT_THAT(traffic(),
                ElementsAreArray(consumer_starts() +
                                 Lines{register_call, refused_by_daemon, request_call,
                                       refused_by_daemon, owner_changed + R"("", "service"))"} +
                                 consumer_leaves()));
    EXPECT_THAT(grants(), ElementsAre(grant_event("0.0"), grant_event("0.0")));
    EXPECT_THAT(events("log"), ElementsAre(adding_log, HasSubstr("changed from '' to ':1.")));
}

TEST_F(ConsumerFailuresTest, StaysSilentWhenALostControllerIsNotBroughtBackByTheCall) {
    open();
    start_host();
    wait_for_output("4.5");
    camera({"stop", "power-consumer"});
    // The loss, and the two refusals, each run the block.
    wait_for_output("4.5");
    wait_for_output("4.5");
    wait_for_output("4.5");
    camera({"start", "power-consumer"});
    wait_for_log("Owner of 'com.tarlo.PowerControl.Consumer' changed from ''");
    camera({"set", "power.budget", "1"});
    close();

    EXPECT_THAT(traffic(),
                ElementsAreArray(consumer_starts() + registers + Lines{request_call} +
                                 granted("4.5") + Lines{owner_changed + R"("service", ""))"} +
                                 Lines{register_call, refused_by_daemon, request_call,
                                       refused_by_daemon, owner_changed + R"("", "service 2"))"} +
                                 consumer_leaves()));
    // It still believes what the controller that is gone has granted.
    EXPECT_EQ(grants().back(), grant_event("4.5"));
}

/// How an answer goes wrong, what is on the bus in its place, and whether the controller has done
/// all the same what it was asked for.
struct Mishap {
    const char* name;
    std::vector<std::string> fault;
    Lines answer;
    bool done;
};

std::ostream& operator<<(std::ostream& out, const Mishap& mishap) {
    return out << mishap.name;
}

class ConsumerAnswerTest : public ConsumerScene, public ::testing::WithParamInterface<Mishap> {
  protected:
    void start_with_fault_in(const std::string& member) {
        open({.host_options = {"--call-timeout", "0.4"}});
        std::vector<std::string> order{"fail", member, "--times", "1"};
        order.insert(order.end(), GetParam().fault.begin(), GetParam().fault.end());
        camera(order);
        start_host();
    }
};

TEST_P(ConsumerAnswerTest, ToTheRegistrationCountsAllTheSame) {
    start_with_fault_in("Register");
    wait_for_camera("\"member\":\"RequestPower\"");
    wait_for_output("0.0");
    wait_for_output("0.0");
    if (GetParam().done)
        wait_for_output("4.5");
    close();
    EXPECT_THAT(events("log"), ElementsAre(adding_log));
    const Lines request_answered =
        GetParam().done ? granted("4.5")
                        : Lines{
                              "service refuses client: com.tarlo.PowerControl.Consumer.Error."
                              "NotRegistered(\"No consumer is registered as 'vipd0'.\")"};
    EXPECT_THAT(traffic(),
                ElementsAreArray(consumer_starts() + Lines{register_call} + GetParam().answer +
                                 Lines{request_call} + request_answered + consumer_leaves()));
}

TEST_P(ConsumerAnswerTest, ToTheRequestCountsAllTheSame) {
    start_with_fault_in("RequestPower");
    wait_for_output("0.0");
    wait_for_output("0.0");
    if (GetParam().done)
        wait_for_output("4.5");
    close();
    EXPECT_THAT(events("log"), ElementsAre(adding_log));
    const Lines grant{"service calls client: SetPower(4.5)", "client replies to service: ()"};
    EXPECT_THAT(
        traffic(),
        ElementsAreArray(consumer_starts() + registers + Lines{request_call} + GetParam().answer +
                         (GetParam().done ? grant : Lines{}) + consumer_leaves()));
}

INSTANTIATE_TEST_SUITE_P(
    Answer, ConsumerAnswerTest,
    ::testing::Values(
        Mishap{"AnError",
               {"--error", "com.tarlo.Broken"},
               {"service refuses client: com.tarlo.Broken(\"A fault rule answers this call.\")"},
               false},
        Mishap{
            "OfAnotherType", {"--malformed"}, {"service replies to client: (\"malformed\")"}, true},
        Mishap{"ThatNeverComes", {"--silent"}, {}, false}),
    [](const auto& mishap) { return std::string(mishap.param.name); });

TEST_F(ConsumerFailuresTest, TakesTheAnswerThatADeadControllerOwesForOne) {
    open();
    camera({"fail", "Register", "--times", "1", "--drop"});
    start_host();
    wait_for_log("Owner of");
    // The loss, and the end of each call.
    wait_for_output("0.0");
    wait_for_output("0.0");
    wait_for_output("0.0");
    close();
    EXPECT_THAT(
        traffic(),
        ElementsAreArray(consumer_starts() +
                         Lines{register_call, owner_changed + R"("service", ""))",
                               "daemon refuses client: org.freedesktop.DBus.Error.NoReply("
                               "\"Message recipient disconnected from message bus without "
                               "replying\")",
                               request_call, refused_by_daemon} +
                         removes_match(owner_rule) +
                         Lines{R"(client calls service: Unregister("vipd0"))", refused_by_daemon,
                               "daemon signals client: NameLost(\"com.tarlo.Vipd.ch0\")"} +
                         host_leaves));
}

TEST_F(ConsumerFailuresTest, DoesNotAskAgainForAMatchThatIsRefused) {
    open({.bus_xml = "<limit name=\"max_match_rules_per_connection\">0</limit>",
          .camera_there = false});
    start_host();
    wait_for_output("0.0");
    wait_for_output("0.0");
    close();
    EXPECT_THAT(events("log"),
                ElementsAre(adding_log, HasSubstr(R"("level":1,"message":"Failed to add match for )"
                                                  R"(NameOwnerChanged: )")));
    const Lines lines = traffic();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& line) {
                                return line.starts_with("client calls daemon: AddMatch");
                            }),
              1);
}

TEST_F(ConsumerFailuresTest, LogsAnOwnerChangeOfAnotherForm) {
    open();
    start_host();
    wait_for_output("4.5");
    const common::BusPtr other = common::open_bus(address(), std::chrono::seconds(5));
    ASSERT_GE(sd_bus_emit_signal(other.get(), "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                 "NameOwnerChanged", "ss", "a", "b"),
              0);
    ASSERT_GE(sd_bus_flush(other.get()), 0);
    wait_for_log("NameOwnerChanged failed to parse message: ");
    camera({"set", "power.budget", "1"});
    wait_for_output("1.0");
    close();
    EXPECT_THAT(events("log"),
                ElementsAre(adding_log, log_event(2,
                                                  "NameOwnerChanged failed to parse message: "
                                                  "No such device or address")));
}

/// Both want the same object at the same path, so the calls for either reach the first.
TEST_F(ConsumerFailuresTest, AnswersForTheSecondOneInTheSameHost) {
    open({.graph = consumer_with("power = 4.5\n", "com.tarlo.Vipd.ch0\", \"com.tarlo.Vipd.ch1") +
                   "[[connections]]\nfrom = \"tick.out\"\nto = \"second.timer_in\"\n"
                   "[blocks.second]\ntype = \"PowerConsumer\"\nchannel = 1\npower = 2\n"});
    start_host();
    wait_for_output("2.0");
    close();
    EXPECT_THAT(ended().err, ::testing::AllOf(HasSubstr("'consumer'"), HasSubstr("'second'"),
                                              HasSubstr("/com/tarlo/Vipd/PowerConsumer")));
    for (const std::string& line : events("output"))
        EXPECT_FALSE(line.starts_with(output_event("second.power_out", "float", "2.0"))) << line;
}

}  // namespace
}  // namespace test
