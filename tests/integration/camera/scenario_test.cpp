#include "tests/integration/camera/scenario_scene.hpp"

#include <nlohmann/json.hpp>

namespace test {
namespace {

using Scenario = ScenarioScene;

/// The times of the events of a kind.
std::vector<double> times_of(const std::string& kind, const std::string& out) {
    std::vector<double> times;
    std::istringstream stream(out);
    for (std::string line; std::getline(stream, line);) {
        const common::Json event = common::parse_json(line, "the text");
        if (event["event"] == kind)
            times.push_back(event["time"]);
    }
    return times;
}

TEST_F(Scenario, PlaysEveryActionInOrderAndEndsByItself) {
    const Ended ended = play_well(R"([[steps]]
say = "Hello."
set = {"temperature.main" = 71.5, "temperature.lens" = "nan"}
[[steps]]
stop = "temperature"
start = "temperature"
restart = "temperature"
[[steps]]
fail = {member = "temperature.GetTemperature", error = "com.example.Busy", delay = 20, times = 2}
clear = "GetTemperature"
expect = {state = "temperature.main", is = 71.5}
)");
    const std::string service = R"({"event":"service","service":"temperature","state":)";
    const std::string names = R"(,"bus_names":["com.tarlo.TemperatureController"]})";
    EXPECT_EQ(
        lines(ended.out),
        whole({R"({"event":"step","step":1,"where":"s.toml:1:1"})",
               R"({"event":"say","step":1,"text":"Hello."})",
               R"({"event":"set","name":"temperature.main","value":71.5})",
               R"({"event":"set","name":"temperature.lens","value":"nan"})",
               R"({"event":"step","step":2,"where":"s.toml:4:1"})",
               service + R"("down","why":"stopped"})",
               service + R"("up","name":")" + client_name(0) + '"' + names,
               service + R"("down","why":"restarting"})",
               service + R"("up","name":")" + client_name(1) + '"' + names,
               R"({"event":"step","step":3,"where":"s.toml:8:1"})",
               R"({"event":"fault","state":"set","member":"temperature.GetTemperature","what":)"
               R"("answered with com.example.Busy after 20 ms, 2 times"})",
               R"({"event":"fault","state":"cleared","member":"GetTemperature","what":)"
               R"("the rule is removed"})",
               R"({"event":"expectation","step":3,"where":"s.toml:8:1","expected":)"
               R"("temperature.main to be 71.5 within 5.0 s","met":true})"}));
}

TEST_F(Scenario, IsToldInTextToo) {
    const Ended ended = play_well(R"([[steps]]
say = "Hello."
set.temperature.main = inf
fail = {member = "GetTemperature", silent = true, times = 1}
expect = {state = "temperature.main", is = inf, within = 1.0}
)",
                                  {}, "text");
    EXPECT_EQ(lines(ended.out),
              whole_text({"Hello.", "temperature: sensor main is inf",
                          "fault: GetTemperature, set: not sent, 1 time",
                          "scenario: as expected: temperature.main to be \"inf\" within 1.0 s"}));
}

TEST_F(Scenario, RunsAProgramOnItsBusAndWaitsForIt) {
    const Ended ended = play_well(R"([[steps]]
run = ["sh", "-c", "sleep 0.2; exec ')" FENWA_CAMERA_PROGRAM
                                  R"(' set temperature.main \"$1\"", "", "71.5"]
say = "It is hot."
expect = {state = "temperature.main", is = 71.5, within = 0.0}
)");
    EXPECT_THAT(between(ended), ::testing::IsSupersetOf(
                                    {R"({"event":"set","name":"temperature.main","value":71.5})",
                                     R"({"event":"say","step":1,"text":"It is hot."})"}));
}

/// A scenario that fails, and what with.
struct Failing {
    const char* name;
    const char* scenario;
    int code;
    const char* sentence;
};
void PrintTo(const Failing& failing, std::ostream* out) {
    *out << failing.scenario;
}

class FailingScenario : public ScenarioScene, public ::testing::WithParamInterface<Failing> {};

TEST_P(FailingScenario, EndsAtTheActionThatFailsAndSaysWhy) {
    const Ended ended = play(GetParam().scenario);
    EXPECT_EQ(ended.code, GetParam().code);
    EXPECT_EQ(plain(ended.err), std::string("fenwa-camera: s.toml:") + GetParam().sentence + "\n");
    EXPECT_THAT(with("never", lines(ended.out)), IsEmpty());
    EXPECT_EQ(lines(ended.out).back(),
              R"({"event":"exit","status":)" + std::to_string(GetParam().code) + '}');
}

INSTANTIATE_TEST_SUITE_P(
    With, FailingScenario,
    ::testing::Values(
        Failing{"AProgramThatFails", "[[steps]]\nrun = ['sh', '-c', 'exit 3']\nsay = 'never'\n", 1,
                "1:1: 'sh' ended with exit code 3"},
        Failing{"AProgramThatIsNotThere", "[[steps]]\nrun = ['no-such-program']\nsay = 'never'\n",
                66, "1:1: cannot start 'no-such-program': No such file or directory"},
        Failing{"ACommandThatIsRefused", "[[steps]]\npress = 'ok'\nsay = 'never'\n", 1,
                "1:1: unknown button 'ok': no client has added buttons"},
        Failing{"AStateThatDoesNotCome", R"([[steps]]
say = "Hello."
[[steps]]
set = {"temperature.main" = 20}
expect = {state = "temperature.main", is = 21, within = 0.1}
say = "never"
)",
                1, "3:1: expected temperature.main to be 21.0 within 0.1 s; it is 20.0"}),
    [](const auto& failing) { return failing.param.name; });

TEST_F(Scenario, StepsComeAtTheirTimes) {
    const Ended ended = play_well(R"([[steps]]
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
    const std::vector<double> times = times_of("step", ended.out);
    ASSERT_EQ(times.size(), 6U);
    // A step may be late on a busy machine, but never early; the first may be late by 10 ms.
    const double begin = times[0] - 0.1 - 0.01;
    EXPECT_GE(times[1], begin + 0.3);
    EXPECT_GE(times[2], begin + 0.5);
    EXPECT_GE(times[5] - times[4], 0.1);
    EXPECT_LT(times[5], begin + 10.0);
    EXPECT_THAT(between(play_well("steps = []\n")), IsEmpty());
}

TEST_F(Scenario, ARampMovesAValueWhileTheScenarioGoesOn) {
    const Ended ended = play_well(R"([[steps]]
ramp = {"temperature.main" = 46.5, over = 2.0}
say = "At once."
[[steps]]
after = 0.05
say = "Long before the ramp has arrived."
)");
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

TEST_F(Scenario, ASetEndsTheRampOfItsValueAndOfNoOther) {
    const Ended ended = play_well(R"([[steps]]
ramp = {"temperature.main" = 60, over = 30.0}
[[steps]]
ramp = {temperature.lens = 30, over = 0.5}
[[steps]]
after = 0.25
set = {"temperature.main" = 20}
)");
    const Lines sets = with("\"set\"", lines(ended.out));
    EXPECT_EQ(with("temperature.main", sets).back(),
              R"({"event":"set","name":"temperature.main","value":20.0})");
    EXPECT_EQ(sets.back(), R"({"event":"set","name":"temperature.lens","value":30.0})");
}

TEST_F(Scenario, AnExpectedStateMayComeWithARamp) {
    const Ended ended = play_well(R"([[steps]]
ramp = {"temperature.main" = 37.5, over = 0.2}
expect = {state = "temperature.main", is = 37, within = 5.0}
say = "Half way."
)");
    const Lines all = between(ended);
    ASSERT_EQ(all.size(), 5U) << ended.out;
    EXPECT_THAT(with("\"say\"", all), SizeIs(1));
    EXPECT_EQ(all.back(), R"({"event":"set","name":"temperature.main","value":37.5})");
}

TEST_F(Scenario, ASignalEndsItWellWhateverItWaitsFor) {
    for (const std::string action : {"at = 86400", "run = ['sleep', '100']"}) {
        begin("[[steps]]\nat = 0\n[[steps]]\n" + action + "\n");
        ASSERT_TRUE(camera().wait_for_text("\"step\":1"));
        close();
        EXPECT_EQ(ended().code, 0);
        EXPECT_EQ(ended().err, "");
        expect_nothing_left();
    }
}

}  // namespace
}  // namespace test
