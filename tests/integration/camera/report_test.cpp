// The results of a scenario's expectations as a JUnit file, read by a parser of XML.
#include <fstream>

#include "tests/integration/camera/scenario_scene.hpp"

namespace test {
namespace {

class ScenarioReport : public ScenarioScene {
  protected:
    [[nodiscard]] std::string file() const { return (folder().path() / "junit.xml").string(); }

    [[nodiscard]] Ended play_reported(const std::string& text, const Lines& program = {}) const {
        Lines words = Lines{"run", "--private-bus", "--report", file()} + scenario(text);
        if (!program.empty())
            words = words + Lines{"--"} + program;
        return run(words);
    }

    /// The suite's counts, then a line a test case: `NAME|ELEMENT: MESSAGE`.
    [[nodiscard]] Lines report() const {
        const Ended read = run_program({"python3", "-c", R"(
import sys, xml.etree.ElementTree as tree
suite = tree.parse(sys.argv[1]).getroot().find('testsuite')
assert float(suite.get('time')) >= 0
print(*(suite.get(key) for key in ('tests', 'failures', 'errors', 'skipped')))
for case in suite:
    assert float(case.get('time')) >= 0
    print(case.get('name') + ''.join(
        '|' + part.tag + (': ' + part.get('message') if part.get('message') else '') for part in case))
)",
                                        file()});
        EXPECT_EQ(read.err, "");
        Lines all;
        std::istringstream out(plain(read.out));
        for (std::string line; std::getline(out, line);)
            all.push_back(line);
        return all;
    }
};

TEST_F(ScenarioReport, HasATestCaseAnExpectation) {
    EXPECT_EQ(play_reported(R"([[steps]]
expect = {state = "temperature.main", is = 36.5}
[[steps]]
expect = {call = "GetTemperature", arguments = ["<a> & \"b\"\u0001"], absent = true, within = 0.2}
)")
                  .code,
              0);
    EXPECT_THAT(report(),
                ElementsAre("2 0 0 0", "step 1: temperature.main to be 36.5 within 5.0 s",
                            "step 2: no call of GetTemperature(\"<a> & \\\"b\\\"\\u0001\") within "
                            "0.2 s"));
}

TEST_F(ScenarioReport, SaysWhatFailedAndWhatWasNotReached) {
    const Ended ended = play_reported(R"([[steps]]
expect = {state = "temperature.main", is = 1, within = 0.1}
[[steps]]
expect = {state = "temperature.main", is = 36.5}
)");
    EXPECT_EQ(ended.code, 1);
    EXPECT_THAT(report(),
                ElementsAre("2 1 0 1",
                            "step 1: temperature.main to be 1.0 within 0.1 s|failure: expected "
                            "temperature.main to be 1.0 within 0.1 s; it is 36.5",
                            "step 2: temperature.main to be 36.5 within 5.0 s|skipped"));
}

TEST_F(ScenarioReport, IsWrittenWhenTheRunEndsEarly) {
    const std::string waiting =
        "[[steps]]\nexpect = {state = \"temperature.main\", is = 1, within = 60}\n";
    EXPECT_EQ(play_reported(waiting, {"sh", "-c", "exit 7"}).code, 7);
    const std::string skipped = "step 1: temperature.main to be 1.0 within 60.0 s|skipped";
    EXPECT_THAT(report(),
                ElementsAre("2 0 1 1", skipped, "the run|error: 'sh' ended with exit code 7"));
    const auto camera =
        start(Lines{"run", "--private-bus", "--report", file()} + scenario(waiting));
    ASSERT_TRUE(camera->wait_for_text("ready on"));
    EXPECT_EQ(camera->terminate().code, 0);
    EXPECT_THAT(report(), ElementsAre("1 0 0 1", skipped));
    EXPECT_EQ(play_reported("[[steps]]\nsya = 1\n").code, 78);
    EXPECT_THAT(report(), ElementsAre("1 0 1 0", HasSubstr("the run|error: ")));
}

TEST_F(ScenarioReport, GoesToAFileThatCanBeWritten) {
    const Ended ended = run(Lines{"run", "--private-bus", "--report", "/nowhere/junit.xml"} +
                            scenario("steps = []\n"));
    EXPECT_EQ(ended.code, 69);
    EXPECT_EQ(ended.err,
              "fenwa-camera: cannot write '/nowhere/junit.xml': No such file or directory\n");
    EXPECT_EQ(run({"run", "--private-bus", "--report", file()}).code, 2)
        << "without a scenario there is nothing to report";
}

}  // namespace
}  // namespace test
