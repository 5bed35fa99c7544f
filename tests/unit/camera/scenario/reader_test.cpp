#include "camera/scenario/reader.hpp"

#include <sstream>

#include "camera/bus/message_json.hpp"
#include "common/process/exit_code.hpp"
#include "tests/support/temporary_folder.hpp"
#include "tests/unit/camera/camera_fixture.hpp"

namespace camera {
namespace {

/// An action in one line, with all that it holds.
struct Line {
    std::string operator()(const Say& say) const { return "say " + say.text; }
    std::string operator()(const SetValue& set) const { return "set " + set.name + ' ' + set.text; }
    std::string operator()(const Ramp& ramp) const {
        return "ramp " + ramp.name + ' ' + common::Json(ramp.target).dump() + " over " +
               common::Json(ramp.over.count()).dump();
    }
    std::string operator()(const ServiceOrder& order) const {
        static constexpr const char* verbs[] = {"start", "stop", "restart"};
        return verbs[static_cast<int>(order.verb)] + (' ' + order.service);
    }
    std::string operator()(const SetFault& fault) const {
        return "fail " + fault.rule.target() + ": " + fault.rule.description();
    }
    std::string operator()(const ClearFault& fault) const { return "clear " + fault.target; }
    std::string operator()(const Press& press) const { return "press " + press.button; }
    std::string operator()(const RunProgram& run) const {
        std::string line = "run";
        for (const std::string& word : run.command)
            line += " <" + word + '>';
        return line;
    }
    std::string operator()(const Expectation& expectation) const {
        return "expect " + expectation.description();
    }
};

class ScenarioReaderTest : public CameraTest {
  protected:
    /// The steps, each with its place and times and then its actions; mistakes fail the test.
    std::string steps(const std::string& text) {
        common::Diagnostics diagnostics("s.toml");
        const std::string path = folder_.write("s", text);
        const Scenario scenario = read_scenario(path, camera_, diagnostics);
        std::ostringstream mistakes;
        diagnostics.print(mistakes, false);
        EXPECT_EQ(mistakes.str(), "");
        EXPECT_EQ(scenario.file, path);
        std::ostringstream list;
        for (const Step& step : scenario.steps) {
            list << step.location.line << ':' << step.location.column;
            if (step.at)
                list << " at " << step.at->count();
            if (step.after)
                list << " after " << step.after->count();
            list << '\n';
            for (const Action& action : step.actions)
                list << "  " << std::visit(Line{}, action) << '\n';
        }
        return list.str();
    }

    test::TemporaryFolder folder_;
};

TEST_F(ScenarioReaderTest, ReadsEveryVerbInTheOrderOfTheFile) {
    EXPECT_EQ(steps(R"([[steps]]
say = "hello"
set = {"temperature.main" = 71.5, "temperature.lens" = "nan"}
ramp = {"temperature.housing" = 60, over = 1.5}
[[steps]]
at = 2.5
stop = "temperature"
start = "temperature"
restart = "temperature"
[[steps]]
after = 1
fail = {member = "temperature.GetTemperature", error = "com.example.Busy", delay = 20, times = 2}
clear = "GetTemperature"
press = "ok"
run = ["fenwa", "write", "a.b", ""]
)"),
              R"(1:1
  say hello
  set temperature.main 71.5
  set temperature.lens nan
  ramp temperature.housing 60.0 over 1.5
5:1 at 2.5
  stop temperature
  start temperature
  restart temperature
10:1 after 1
  fail temperature.GetTemperature: answered with com.example.Busy after 20 ms, 2 times
  clear GetTemperature
  press ok
  run <fenwa> <write> <a.b> <>
)");
}

TEST_F(ScenarioReaderTest, ReadsExpectationsOfCallsAndStates) {
    EXPECT_EQ(steps(R"([[steps]]
expect = {call = "GetTemperature"}
[[steps]]
expect = {call = "temperature.GetTemperature", arguments = [3, "main"], within = 0.5}
[[steps]]
expect = {call = "GetTemperature", arguments = []}
[[steps]]
expect = {state = "temperature.main", is = 71, within = 60}
[[steps]]
expect = {state = "temperature.main", is = inf}
)"),
              R"(1:1
  expect a call of GetTemperature within 5.0 s
3:1
  expect a call of temperature.GetTemperature(3, "main") within 0.5 s
5:1
  expect a call of GetTemperature() within 5.0 s
7:1
  expect temperature.main to be 71.0 within 60.0 s
9:1
  expect temperature.main to be "inf" within 5.0 s
)");
}

TEST_F(ScenarioReaderTest, ANameWithoutQuotesMeansTheSame) {
    EXPECT_EQ(steps("[[steps]]\nset.temperature.main = 5\n"
                    "ramp = {temperature.lens = 7.25, over = 0}\n"),
              "1:1\n  set temperature.main 5\n  ramp temperature.lens 7.25 over 0.0\n");
}

TEST_F(ScenarioReaderTest, StepsMayBeInlineTablesAndMayBeNone) {
    EXPECT_EQ(steps("steps = [{say = \"a\"}, {at = 1.0}]\n"), "1:10\n  say a\n1:23 at 1\n");
    EXPECT_EQ(steps("steps = []\n"), "");
}

TEST_F(ScenarioReaderTest, TimesMayBeEqualAndReachADay) {
    EXPECT_EQ(steps("[[steps]]\nat = 0\n[[steps]]\nat = 2\n[[steps]]\nafter = 0.0\n"
                    "[[steps]]\nat = 2.0\n[[steps]]\nat = 86400\n"),
              "1:1 at 0\n3:1 at 2\n5:1 after 0\n7:1 at 2\n9:1 at 86400\n");
}

TEST_F(ScenarioReaderTest, ReadingChangesNothing) {
    (void)steps(
        "[[steps]]\nset = {\"temperature.main\" = 5}\nfail = {member = "
        "\"GetTemperature\", drop = true}\n");
    EXPECT_EQ(camera_.value("temperature.main"), 36.5);
    EXPECT_EQ(camera_.show()["faults"].dump(), "[]");
    EXPECT_EQ(told(), "");
}

TEST_F(ScenarioReaderTest, AFileThatIsNotThereEndsTheReading) {
    common::Diagnostics diagnostics("s.toml");
    try {
        (void)read_scenario((folder_.path() / "nothing").string(), camera_, diagnostics);
        FAIL() << "nothing was thrown";
    } catch (const common::Failure& failure) {
        EXPECT_EQ(failure.code(), common::ExitCode::unreadable);
    }
}

}  // namespace
}  // namespace camera
