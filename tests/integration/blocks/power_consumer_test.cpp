#include "tests/integration/blocks/power_consumer_scene.hpp"

namespace test {
namespace {

using PowerConsumerTest = ConsumerScene;

TEST_F(PowerConsumerTest, RegistersAsksAndPublishesWhatItIsGranted) {
    start_granted();
    set_budget("3.25");
    wait_for_output("3.25");
    close();
    EXPECT_THAT(traffic(), are(consumer_starts + registers + Lines{request_call} + granted("4.5") +
                               tells("3.25") + consumer_leaves));
    // Each of the answers runs the block, which publishes what it has.
    EXPECT_THAT(block_events(),
                ElementsAre(adding_log, ready_event, grant_event("0.0"), grant_event("0.0"),
                            grant_event("4.5"), grant_event("3.25"), exit_event));
    expect_ended_well();
    EXPECT_EQ(state().dump().find("vipd0"), std::string::npos) << "it is still registered";
}

TEST_F(PowerConsumerTest, TakesItsNamesFromItsChannelAndAsksForAFloat) {
    start({.graph = consumer_with("channel = 7\npower = 0.1\n", "com.tarlo.Vipd.ch7")});
    wait_for_output("0.10000000149011612");
    close();
    EXPECT_THAT(traffic(),
                AllOf(Contains(R"(client calls service: Register("vipd7", false, )"
                               R"("com.tarlo.Vipd.ch7", "/com/tarlo/Vipd/PowerConsumer", )"
                               R"("com.tarlo.Vipd.PowerConsumer"))"),
                      Contains(R"(client calls service: RequestPower("vipd7", "control", )"
                               "0.10000000149011612)"),
                      Contains(R"(client calls service: Unregister("vipd7"))")));
}

TEST_F(PowerConsumerTest, BringsAnAbsentControllerUpWhereCallsDo) {
    start_granted({.activation = true, .without = {"power-consumer"}});
    close();
    EXPECT_THAT(grants(), ElementsAre(grant_event("0.0"), grant_event("0.0"), grant_event("4.5")));
}

TEST_F(PowerConsumerTest, RegistersAgainAtOnceWhenTheControllerIsLost) {
    start_granted({.activation = true});
    handle({"stop", "power-consumer"});
    // The loss, both answers and SetPower run the block, and the next SetPower must not overtake
    // the answer to this one.
    wait_for_output("4.5", 4);
    set_budget("1");
    wait_for_output("1.0");
    close();
    EXPECT_THAT(traffic(),
                are(consumer_starts + registers + Lines{request_call} + granted("4.5") +
                    Lines{owner_change("service", ""), register_call, owner_change("", "service 2"),
                          "service 2 replies to client: ()", request_call} +
                    granted("4.5", "service 2") + tells("1.0", "service 2") + consumer_leaves));
    EXPECT_THAT(events("log"), ElementsAre(adding_log, owner_log("':1."), owner_log("'' to ':1.")));
}

TEST_F(PowerConsumerTest, TakesPowerFromAnyCallerAsFarAsAFloatGoes) {
    start_granted();
    const common::BusPtr other = common::open_bus(address(), std::chrono::seconds(5));
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
    start_granted();
    const Ended seen = run_program({"busctl", "--address=" + address(), "introspect", "--list",
                                    "com.tarlo.Vipd.ch0", "/com/tarlo/Vipd/PowerConsumer",
                                    "com.tarlo.Vipd.PowerConsumer"});
    end_host();
    EXPECT_EQ(seen.code, 0) << seen.err;
    EXPECT_THAT(seen.out, ::testing::ContainsRegex("\\.SetPower +method +d +- +-"));
}

using ConsumerFailuresTest = ConsumerScene;

TEST_F(ConsumerFailuresTest, TakesAnAbsentControllerForOneThatHasAnswered) {
    start({.without = {"power-consumer"}});
    // The two refusals.
    wait_for_output("0.0", 2);
    handle({"start", "power-consumer"});
    wait_for_log("Owner of");
    set_budget("1");
    close();
    EXPECT_THAT(traffic(), are(consumer_starts +
                               Lines{register_call, refused_by_daemon(), request_call,
                                     refused_by_daemon(), owner_change("", "service")} +
                               consumer_leaves));
    EXPECT_THAT(grants(), ElementsAre(grant_event("0.0"), grant_event("0.0")));
    EXPECT_THAT(events("log"), ElementsAre(adding_log, owner_log("'' to ':1.")));
}

TEST_F(ConsumerFailuresTest, StaysSilentWhenALostControllerIsNotBroughtBackByTheCall) {
    start_granted();
    handle({"stop", "power-consumer"});
    // The loss, and the two refusals, each run the block.
    wait_for_output("4.5", 3);
    handle({"start", "power-consumer"});
    wait_for_log("Owner of 'com.tarlo.PowerControl.Consumer' changed from ''");
    set_budget("1");
    close();
    EXPECT_THAT(traffic(),
                are(consumer_starts + registers + Lines{request_call} + granted("4.5") +
                    Lines{owner_change("service", ""), register_call, refused_by_daemon(),
                          request_call, refused_by_daemon(), owner_change("", "service 2")} +
                    consumer_leaves));
    // It still believes what the controller that is gone has granted.
    EXPECT_EQ(grants().back(), grant_event("4.5"));
}

class ConsumerAnswerTest : public ConsumerScene, public ::testing::WithParamInterface<Mishap> {
  protected:
    /// All traffic of a scene in which the answer to `member` goes wrong.
    void play_with_fault_in(const std::string& member) {
        start_with_fault(Lines{member, "--times", "1"} + GetParam().fault,
                         {.host_options = {"--call-timeout", "0.4"}});
        wait_for_camera("\"member\":\"RequestPower\"");
        wait_for_output("0.0", 2);
        if (GetParam().served())
            wait_for_output("4.5");
        close();
        EXPECT_THAT(events("log"), ElementsAre(adding_log));
    }
};

TEST_P(ConsumerAnswerTest, ToTheRegistrationCountsAllTheSame) {
    play_with_fault_in("Register");
    const Lines request_answered =
        GetParam().served() ? granted("4.5")
                            : Lines{
                                  "service refuses client: com.tarlo.PowerControl.Consumer.Error."
                                  "NotRegistered(\"No consumer is registered as 'vipd0'.\")"};
    EXPECT_THAT(traffic(), are(consumer_starts + Lines{register_call} + GetParam().answer +
                               Lines{request_call} + request_answered + consumer_leaves));
}

TEST_P(ConsumerAnswerTest, ToTheRequestCountsAllTheSame) {
    play_with_fault_in("RequestPower");
    EXPECT_THAT(traffic(),
                are(consumer_starts + registers + Lines{request_call} + GetParam().answer +
                    (GetParam().served() ? tells("4.5") : Lines{}) + consumer_leaves));
}

INSTANTIATE_TEST_SUITE_P(Answer, ConsumerAnswerTest,
                         ::testing::Values(an_error, another_type, no_answer), mishap_name);

TEST_F(ConsumerFailuresTest, TakesTheAnswerThatADeadControllerOwesForOne) {
    start_with_fault({"Register", "--times", "1", "--drop"});
    wait_for_log("Owner of");
    // The loss, and the end of each call.
    wait_for_output("0.0", 3);
    close();
    EXPECT_THAT(traffic(),
                are(consumer_starts +
                    Lines{register_call, owner_change("service", ""), died, request_call,
                          refused_by_daemon()} +
                    removes_match(owner_rule) + in_vain(unregister_call) + channel_leaves));
}

TEST_F(ConsumerFailuresTest, DoesNotAskAgainForAMatchThatIsRefused) {
    start({.bus_xml = max_matches(0), .camera_there = false});
    wait_for_output("0.0", 2);
    close();
    EXPECT_THAT(events("log"),
                ElementsAre(adding_log, HasSubstr(R"("level":1,"message":"Failed to add match for )"
                                                  R"(NameOwnerChanged: )")));
    EXPECT_THAT(with("client calls daemon: AddMatch", traffic()), SizeIs(1));
}

/// Both want the same object at the same path, so the calls for either reach the first.
TEST_F(ConsumerFailuresTest, AnswersForTheSecondOneInTheSameHost) {
    start({.graph = consumer_with("power = 4.5\n", "com.tarlo.Vipd.ch0\", \"com.tarlo.Vipd.ch1") +
                    "[[connections]]\nfrom = \"tick.out\"\nto = \"second.timer_in\"\n"
                    "[blocks.second]\ntype = \"PowerConsumer\"\nchannel = 1\npower = 2\n"});
    wait_for_output("2.0");
    close();
    EXPECT_THAT(ended().err, AllOf(HasSubstr("'consumer'"), HasSubstr("'second'"),
                                   HasSubstr("/com/tarlo/Vipd/PowerConsumer")));
    EXPECT_EQ(
        std::ranges::count(events("output"), output_event("second.power_out", "float", "2.0")), 0);
}

}  // namespace
}  // namespace test
