#include <sstream>

#include "camera/scenario/reader.hpp"
#include "tests/support/temporary_folder.hpp"
#include "tests/unit/camera/camera_fixture.hpp"

namespace camera {
namespace {

class ScenarioMistakes : public CameraTest {
  protected:
    /// All that the mistakes of a file print.
    std::string mistakes(const std::string& text) {
        common::Diagnostics diagnostics("s.toml");
        (void)read_scenario(folder_.write("s", text), camera_, diagnostics);
        std::ostringstream out;
        diagnostics.print(out, false);
        return out.str();
    }

    test::TemporaryFolder folder_;
};

/// One line of a step, with what is printed for it: the place in it, the sentence, the help.
struct Mistake {
    const char* line;
    int column;
    const char* sentence;
    const char* help = "";
};
void PrintTo(const Mistake& mistake, std::ostream* out) {
    *out << mistake.line;
}

class ScenarioMistakeTest : public ScenarioMistakes,
                            public ::testing::WithParamInterface<Mistake> {};

TEST_P(ScenarioMistakeTest, IsReportedAtItsPlace) {
    const Mistake& mistake = GetParam();
    const std::string help = mistake.help;
    EXPECT_EQ(mistakes("[[steps]]\n" + std::string(mistake.line) + "\n"),
              "s.toml:2:" + std::to_string(mistake.column) + ": error: " + mistake.sentence + "\n" +
                  mistake.line + "\n" +
                  std::string(static_cast<std::size_t>(mistake.column - 1), ' ') + "^\n" +
                  (help.empty() ? "" : "help: " + help + "\n") + "s.toml: 1 error\n");
}

INSTANTIATE_TEST_SUITE_P(
    Times, ScenarioMistakeTest,
    ::testing::Values(
        Mistake{"at = -1", 6, "'at' must be a time in seconds from 0 to 86400.0, not -1.0"},
        Mistake{"at = nan", 6, "'at' must be a time in seconds from 0 to 86400.0, not nan"},
        Mistake{"at = 86400.5", 6, "'at' must be a time in seconds from 0 to 86400.0, not 86400.5"},
        Mistake{"at = \"now\"", 6, "'at' of the step must be a number, not a string"},
        Mistake{"after = -0.001", 9,
                "'after' must be a time in seconds from 0 to 86400.0, not -0.001"},
        Mistake{"after = inf", 9, "'after' must be a time in seconds from 0 to 86400.0, not inf"}));

INSTANTIATE_TEST_SUITE_P(
    Verbs, ScenarioMistakeTest,
    ::testing::Values(
        Mistake{"sya = \"a\"", 1, "unknown key 'sya' in the step", "did you mean 'say'?"},
        Mistake{"say = 5", 7, "'say' of the step must be a string, not an integer"},
        Mistake{"start = true", 9, "'start' of the step must be a string, not a boolean"},
        Mistake{"start = \"temprature\"", 9, "unknown service 'temprature'",
                "did you mean 'temperature'?"},
        Mistake{"stop = \"x\"", 8, "unknown service 'x'"},
        Mistake{"restart = [\"temperature\"]", 11,
                "'restart' of the step must be a string, not an array"},
        Mistake{"restart = \"x\"", 11, "unknown service 'x'"},
        Mistake{"press = 1.5", 9, "'press' of the step must be a string, not a float"},
        Mistake{"run = \"ls\"", 7, "'run' of the step must be an array, not a string"},
        Mistake{"run = []", 7, "'run' needs a program"},
        Mistake{"run = [\"\"]", 7, "'run' needs a program"},
        Mistake{"run = [\"ls\", 1]", 14,
                "a program and its arguments must be strings, not an integer"},
        Mistake{"clear = \"GetTemperatures\"", 9,
                "unknown method, signal or property 'GetTemperatures'",
                "did you mean 'GetTemperature'?"},
        Mistake{"clear = 1979-05-27", 9, "'clear' of the step must be a string, not a date"}));

INSTANTIATE_TEST_SUITE_P(
    Values, ScenarioMistakeTest,
    ::testing::Values(
        Mistake{"set = 5", 7, "'set' of the step must be a table, not an integer"},
        Mistake{"set = {\"temperature.mian\" = 1}", 8, "unknown sensor 'mian'",
                "did you mean 'main'?"},
        Mistake{"set = {\"temperatur.main\" = 1}", 8, "unknown value 'temperatur.main'",
                "did you mean 'temperature.main'?"},
        Mistake{"set = {\"temperature.main\" = true}", 8,
                "'true' is not a valid temperature: expected a number, nan, inf or -inf"},
        Mistake{"set = {\"temperature.main\" = 07:32:00}", 29,
                "expected a string, a number, a boolean or an array, not a time"},
        Mistake{"set = {power.budgt = 1}", 14, "unknown value 'power.budgt'",
                "did you mean 'power.budget'?"},
        Mistake{"set = {power.share.a = 1}", 20,
                "'power.share.a' cannot be set: it follows from the budget and the requests"},
        Mistake{"ramp = {power.left = 1, over = 1}", 15,
                "'power.left' cannot be set: it follows from the budget and the requests"},
        Mistake{"ramp = true", 8, "'ramp' of the step must be a table, not a boolean"},
        Mistake{"ramp = {\"temperature.main\" = 1}", 8, "the ramp has no 'over'"},
        Mistake{"ramp = {\"temperature.main\" = 1, over = -1}", 40,
                "'over' must be a time in seconds from 0 to 86400.0, not -1.0"},
        Mistake{"ramp = {\"temperature.main\" = \"1\", over = 1}", 9,
                "the target of a ramp must be a finite number, not a string"},
        Mistake{"ramp = {\"temperature.main\" = inf, over = 1}", 9,
                "the target of a ramp must be a finite number, not inf"},
        Mistake{"ramp = {\"temperature.lense\" = 1, over = 1}", 9, "unknown sensor 'lense'",
                "did you mean 'lens'?"}));

INSTANTIATE_TEST_SUITE_P(
    Faults, ScenarioMistakeTest,
    ::testing::Values(
        Mistake{"fail = \"GetTemperature\"", 8, "'fail' of the step must be a table, not a string"},
        Mistake{"fail = {drop = true}", 8,
                "a fault needs 'member', the name of a method, signal or property"},
        Mistake{"fail = {member = \"GetTemperature\", dorp = true}", 43,
                "unknown key 'dorp' in the fault", "did you mean 'drop'?"},
        Mistake{"fail = {member = \"GetTemperature\", drop = 1}", 43,
                "'drop' of a fault must be true or false, not 1"},
        Mistake{"fail = {member = \"GetTemperature\"}", 8,
                "a fault needs one of 'error', 'malformed', 'silent', 'drop' and 'delay'"},
        Mistake{"fail = {member = \"GetTemperatur\", drop = true}", 18,
                "unknown method, signal or property 'GetTemperatur'",
                "did you mean 'GetTemperature'?"},
        Mistake{"fail = {member = \"TemperatureSignal\", error = \"com.example.E\"}", 18,
                "'TemperatureSignal' is a signal; 'error' needs a method or a property"},
        Mistake{"fail = {member = \"GetTemperature\", delay = 1979-05-27}", 44,
                "expected a string, a number, a boolean or an array, not a date"}));

INSTANTIATE_TEST_SUITE_P(
    Expectations, ScenarioMistakeTest,
    ::testing::Values(
        Mistake{"expect = \"GetTemperature\"", 10,
                "'expect' of the step must be a table, not a string"},
        Mistake{"expect = {within = 1.0}", 10, "an expectation needs 'call' or 'state'"},
        Mistake{"expect = {call = 5}", 18,
                "'call' of the expectation must be a string, not an integer"},
        Mistake{"expect = {call = \"GetTemperatur\"}", 18,
                "unknown method, signal or property 'GetTemperatur'",
                "did you mean 'GetTemperature'?"},
        Mistake{"expect = {call = \"temperature.Show\"}", 18,
                "unknown method, signal or property 'Show' of the service 'temperature'"},
        Mistake{"expect = {call = \"TemperatureSignal\"}", 18,
                "'TemperatureSignal' is a signal, not a method"},
        Mistake{"expect = {call = \"PowerReceived\"}", 18,
                "'PowerReceived' is a property, not a method", "a property is read with 'Get'"},
        Mistake{"expect = {call = \"SetPower\"}", 18,
                "'SetPower' is an outgoing call of the camera, not a method",
                "expect the 'state' that it reports"},
        Mistake{"expect = {state = \"power.share.a\", is = -1}", 19,
                "'-1' is not a valid share: expected a finite number of at least 0, or none"},
        Mistake{"expect = {call = \"GetTemperature\", arguments = 3}", 48,
                "'arguments' of the expectation must be an array, not an integer"},
        Mistake{"expect = {call = \"GetTemperature\", argument = [3]}", 36,
                "unknown key 'argument' in the expectation", "did you mean 'arguments'?"},
        Mistake{"expect = {call = \"GetTemperature\", is = 3}", 36,
                "unknown key 'is' in the expectation"},
        Mistake{"expect = {call = \"GetTemperature\", within = \"1\"}", 45,
                "'within' of the expectation must be a number, not a string"},
        Mistake{"expect = {call = \"GetTemperature\", within = -1}", 45,
                "'within' must be a time in seconds from 0 to 86400.0, not -1.0"},
        Mistake{"expect = {state = \"temperature.main\"}", 10, "the expectation has no 'is'"},
        Mistake{"expect = {state = \"temperature.man\", is = 1}", 19, "unknown sensor 'man'",
                "did you mean 'main'?"},
        Mistake{"expect = {state = \"temperature.main\", is = \"warm\"}", 19,
                "'warm' is not a valid temperature: expected a number, nan, inf or -inf"},
        Mistake{"expect = {state = \"temperature.main\", is = {a = 1}}", 44,
                "expected a string, a number, a boolean or an array, not a table"}));

TEST_F(ScenarioMistakes, AScenarioNeedsSteps) {
    EXPECT_EQ(mistakes(""), "s.toml:1:1: error: the scenario has no 'steps'\ns.toml: 1 error\n");
    EXPECT_EQ(mistakes("steps = 5\n"),
              "s.toml:1:9: error: 'steps' of the scenario must be an array, not an integer\n"
              "steps = 5\n        ^\ns.toml: 1 error\n");
    EXPECT_EQ(mistakes("steps = [5]\n"),
              "s.toml:1:10: error: a step must be a table, not an integer\n"
              "steps = [5]\n         ^\ns.toml: 1 error\n");
}

TEST_F(ScenarioMistakes, AStepHasOneTime) {
    EXPECT_EQ(mistakes("[[steps]]\nat = 1\nafter = 2\n"),
              "s.toml:3:9: error: a step has either 'at' or 'after', not both\n"
              "after = 2\n        ^\ns.toml: 1 error\n");
}

TEST_F(ScenarioMistakes, FixedTimesStandInTheirOrder) {
    EXPECT_EQ(mistakes("[[steps]]\nat = 5\n[[steps]]\nafter = 1\n[[steps]]\nat = 4.5\n"
                       "[[steps]]\nat = 4.75\n[[steps]]\nat = 5.0\n"),
              "s.toml:5:1: error: this step at 4.5 s comes after a step at 5.0 s\n[[steps]]\n^\n"
              "s.toml:7:1: error: this step at 4.75 s comes after a step at 5.0 s\n[[steps]]\n^\n"
              "s.toml: 2 errors\n");
}

TEST_F(ScenarioMistakes, AnExpectationIsOfACallOrOfAState) {
    EXPECT_EQ(mistakes("[[steps]]\nexpect = {call = \"GetTemperature\", state = "
                       "\"temperature.main\"}\n"),
              "s.toml:2:44: error: an expectation has either 'call' or 'state', not both\n"
              "expect = {call = \"GetTemperature\", state = \"temperature.main\"}\n" +
                  std::string(43, ' ') + "^\ns.toml: 1 error\n");
}

TEST_F(ScenarioMistakes, AreAllReportedInFileOrder) {
    EXPECT_EQ(mistakes(R"(title = "ours"
[[steps]]
at = 3
expct = {call = "GetTemperature"}
set = {"temperature.mian" = 40, "temperature.lens" = "cold"}
[[steps]]
at = 1
fail = {member = "GetTemperature", times = 0, silent = 3}
[[steps]]
expect = {call = "GetTemperatures", within = -1}
restart = "temprature"
)"),
              R"(s.toml:1:1: error: unknown key 'title' in the scenario
title = "ours"
^
s.toml:4:1: error: unknown key 'expct' in the step
expct = {call = "GetTemperature"}
^
help: did you mean 'expect'?
s.toml:5:8: error: unknown sensor 'mian'
set = {"temperature.mian" = 40, "temperature.lens" = "cold"}
       ^
help: did you mean 'main'?
s.toml:5:33: error: 'cold' is not a valid temperature: expected a number, nan, inf or -inf
set = {"temperature.mian" = 40, "temperature.lens" = "cold"}
                                ^
s.toml:6:1: error: this step at 1.0 s comes after a step at 3.0 s
[[steps]]
^
s.toml:8:44: error: 'times' of a fault must be at least 1, not 0
fail = {member = "GetTemperature", times = 0, silent = 3}
                                           ^
s.toml:8:56: error: 'silent' of a fault must be true or false, not 3
fail = {member = "GetTemperature", times = 0, silent = 3}
                                                       ^
s.toml:10:18: error: unknown method, signal or property 'GetTemperatures'
expect = {call = "GetTemperatures", within = -1}
                 ^
help: did you mean 'GetTemperature'?
s.toml:10:46: error: 'within' must be a time in seconds from 0 to 86400.0, not -1.0
expect = {call = "GetTemperatures", within = -1}
                                             ^
s.toml:11:11: error: unknown service 'temprature'
restart = "temprature"
          ^
help: did you mean 'temperature'?
s.toml: 10 errors
)");
}

}  // namespace
}  // namespace camera
