#include <gmock/gmock.h>

#include "tests/integration/camera/scenario_scene.hpp"

namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

using Scenario = ScenarioScene;

/// The times of the events of a kind.
std::vector<double> times_of(const std::string& kind, const std::string& out) {
    std::vector<double> times;
    std::istringstream stream(out);
    for (std::string line; std::getline(stream, line);) {
        const common::Json event = common::Json::parse(line);
        if (event["event"] == kind)
            times.push_back(event["time"]);
    }
    return times;
}

TEST_F(Scenario, PlaysEveryVerbInOrderAndEndsByItself) {
    const Ended ended = play(R"([[steps]]
say = "Hello."
set = {"temperature.main" = 71.5, "temperature.lens" = "nan"}
[[steps]]
stop = "temperature"
start = "temperature"
restart = "temperature"
[[steps]]
fail = {member = "GetTemperature", silent = true, times = 3}
clear = "GetTemperature"
expect = {state = "temperature.main", is = 71.5}
)");
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
    const std::string service = R"({"event":"service","service":"temperature","state":)";
    const std::string names = R"(,"bus_names":["com.tarlo.TemperatureController"]})";
    EXPECT_EQ(
        lines(ended.out),
        whole(
            {R"({"event":"step","step":1,"where":"s.toml:1:1"})",
             R"({"event":"say","step":1,"text":"Hello."})",
             R"({"event":"set","name":"temperature.main","value":71.5})",
             R"({"event":"set","name":"temperature.lens","value":"nan"})",
             R"({"event":"step","step":2,"where":"s.toml:4:1"})",
             service + R"("down","why":"stopped"})",
             service + R"("up","name":")" + client_name(0) + '"' + names,
             service + R"("down","why":"restarting"})",
             service + R"("up","name":")" + client_name(1) + '"' + names,
             R"({"event":"step","step":3,"where":"s.toml:8:1"})",
             R"({"event":"fault","state":"set","member":"GetTemperature","what":"not sent, 3 times"})",
             R"({"event":"fault","state":"cleared","member":"GetTemperature","what":)"
             R"("the rule is removed"})",
             R"({"event":"expectation","step":3,"where":"s.toml:8:1","expected":)"
             R"("temperature.main to be 71.5 within 5.0 s","met":true})"}));
}

TEST_F(Scenario, RunsAProgramOnItsBusAndWaitsForIt) {
    const Ended ended = play(R"([[steps]]
run = ["sh", "-c", "sleep 0.2; exec ')" FENWA_CAMERA_PROGRAM R"(' set temperature.main 71.5"]
say = "It is hot."
expect = {state = "temperature.main", is = 71.5, within = 0.0}
)");
    EXPECT_EQ(ended.code, 0) << ended.err;
    EXPECT_EQ(ended.err, "");
    EXPECT_THAT(between(ended),
                IsSupersetOf({R"({"event":"set","name":"temperature.main","value":71.5})",
                              R"({"event":"say","step":1,"text":"It is hot."})"}));
}

TEST_F(Scenario, FailsWithAProgramThatFails) {
    const Ended ended = play("[[steps]]\nrun = [\"sh\", \"-c\", \"exit 3\"]\nsay = \"no\"\n");
    EXPECT_EQ(ended.code, 1);
    EXPECT_THAT(ended.err, ::testing::HasSubstr("s.toml:1:1: 'sh' ended with exit code 3"));
    EXPECT_EQ(ended.out.find("\"say\""), std::string::npos);
}

TEST_F(Scenario, FailsWithAProgramThatIsNotThere) {
    const Ended ended = play("[[steps]]\nrun = [\"no-such-program\"]\n");
    EXPECT_EQ(ended.code, 66);
    EXPECT_THAT(ended.err, ::testing::HasSubstr("s.toml:1:1: cannot start 'no-such-program'"));
}

TEST_F(Scenario, EndsTheProgramThatItWaitsForWhenItIsStopped) {
    const auto camera = start(command("[[steps]]\nrun = [\"sleep\", \"100\"]\n"));
    ASSERT_TRUE(camera->wait_for_text("\"step\""));
    EXPECT_EQ(camera->terminate().code, 0);
    EXPECT_EQ(left_behind(), Lines{});
}

TEST_F(Scenario, TellsItselfInTextToo) {
    const Ended ended = play(R"([[steps]]
say = "Hello."
set = {"temperature.main" = 71.5}
expect = {state = "temperature.main", is = 71.5, within = 1.0}
)",
                             {}, "text");
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(lines(ended.out),
              whole_text({"Hello.", "temperature: sensor main is 71.5",
                          "scenario: as expected: temperature.main to be 71.5 within 1.0 s"}));
}

TEST_F(Scenario, WithoutAStepEndsAtOnce) {
    const Ended ended = play("steps = []\n");
    EXPECT_EQ(ended.code, 0);
    EXPECT_THAT(between(ended), IsEmpty());
}

TEST_F(Scenario, StepsComeAtTheirTimes) {
    const Ended ended = play(R"([[steps]]
[[steps]]
after = 0.2
[[steps]]
at = 0.5
[[steps]]
[[steps]]
at = 0.5
[[steps]]
after = 0.1
)");
    EXPECT_EQ(ended.code, 0);
    const std::vector<double> times = times_of("step", ended.out);
    ASSERT_EQ(times.size(), 6U);
    // A step may be late on a busy machine, but never early. The clock starts a little before
    // the first step does.
    const double begin = times[0] - 0.1;
    EXPECT_GE(times[1] - times[0], 0.2);
    EXPECT_GE(times[2], begin + 0.5);
    EXPECT_GE(times[5] - times[4], 0.1);
    EXPECT_LT(times[5], begin + 10.0);
}

TEST_F(Scenario, ARampMovesAValueWhileTheScenarioGoesOn) {
    const Ended ended = play(R"([[steps]]
ramp = {"temperature.main" = 46.5, over = 2.0}
say = "At once."
[[steps]]
after = 0.05
say = "Long before the ramp has arrived."
)");
    EXPECT_EQ(ended.code, 0);
    Lines expected;
    for (int i = 1; i <= 20; ++i)
        expected.push_back(R"({"event":"set","name":"temperature.main","value":)" +
                           common::json_number(36.5 + i * 0.5).dump() + '}');
    EXPECT_EQ(with("\"set\"", lines(ended.out)), expected);
    const std::vector<double> says = times_of("say", ended.out);
    const std::vector<double> sets = times_of("set", ended.out);
    ASSERT_EQ(says.size(), 2U);
    EXPECT_LT(says[1], sets.back());
    EXPECT_GE(sets.back() - says[0], 2.0);
    EXPECT_LT(sets.back() - says[0], 10.0);
}

TEST_F(Scenario, ASetEndsTheRampOfItsValue) {
    const Ended ended = play(R"([[steps]]
ramp = {"temperature.main" = 60, over = 30.0}
[[steps]]
after = 0.25
set = {"temperature.main" = 20}
)");
    EXPECT_EQ(ended.code, 0);
    const Lines sets = with("\"set\"", lines(ended.out));
    ASSERT_GE(sets.size(), 2U);
    EXPECT_EQ(sets.back(), R"({"event":"set","name":"temperature.main","value":20.0})");
}

TEST_F(Scenario, AnExpectedStateMayComeWithARamp) {
    const Ended ended = play(R"([[steps]]
ramp = {"temperature.main" = 37.5, over = 0.2}
expect = {state = "temperature.main", is = 37, within = 5.0}
say = "Half way."
)");
    EXPECT_EQ(ended.code, 0);
    const Lines all = between(ended);
    ASSERT_EQ(all.size(), 5U) << ended.out;
    EXPECT_EQ(with("\"say\"", all).size(), 1U);
    EXPECT_THAT(all.back(), R"({"event":"set","name":"temperature.main","value":37.5})");
}

TEST_F(Scenario, FailsWhereAStateDoesNotCome) {
    const Ended ended = play(R"([[steps]]
say = "Hello."
[[steps]]
set = {"temperature.main" = 20}
expect = {state = "temperature.main", is = 21, within = 0.1}
say = "never"
)");
    EXPECT_EQ(ended.code, 1);
    EXPECT_EQ(plain(ended.err),
              "fenwa-camera: s.toml:3:1: expected temperature.main to be 21.0 within 0.1 s; no "
              "calls received\n");
    EXPECT_THAT(
        with("\"expectation\"", lines(ended.out)),
        ElementsAre(R"({"event":"expectation","step":2,"where":"s.toml:3:1","expected":)"
                    R"("temperature.main to be 21.0 within 0.1 s","met":false,"calls":[]})"));
    EXPECT_THAT(with("never", lines(ended.out)), IsEmpty());
    EXPECT_EQ(lines(ended.out).back(), R"({"event":"exit","status":1})");
}

TEST_F(Scenario, AnOrderThatIsRefusedFailsItToo) {
    const Ended ended = play("[[steps]]\npress = \"ok\"\n");
    EXPECT_EQ(ended.code, 1);
    EXPECT_EQ(plain(ended.err),
              "fenwa-camera: s.toml:1:1: unknown button 'ok': no client has added buttons\n");
}

TEST_F(Scenario, ASignalEndsItWell) {
    const auto camera = start(command("[[steps]]\nat = 0\n[[steps]]\nat = 60\n"));
    ASSERT_TRUE(camera->wait_for_text("\"step\":1"));
    const Ended ended = camera->terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
}

}  // namespace
}  // namespace test
