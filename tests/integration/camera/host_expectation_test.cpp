// Scenarios that expect values, log lines and status of a host.
#include <fmt/format.h>

#include "tests/integration/camera/scenario_scene.hpp"
#include "tests/support/pattern.hpp"

namespace test {
namespace {

const std::string guard_graph = FENWA_EXAMPLES "/graphs/temperature-guard.toml";

class HostExpectation : public ScenarioScene {
  protected:
    /// A host with the guard's graph, which nobody can ask without `--control`.
    static Lines guard(const std::string& control = "--control") {
        return {FENWA_PROGRAM, "run", control, guard_graph, "--format", "json"};
    }

    /// The sentence with which a scenario beside the guard fails, without its times.
    [[nodiscard]] std::string failure(const std::string& scenario,
                                      const Lines& program = guard()) const {
        const Ended ended = play(scenario, program);
        EXPECT_EQ(ended.code, 1);
        return Pattern("at [0-9.]+ s").replace(plain(ended.err), "at T s");
    }
};

TEST_F(HostExpectation, OfAnOutputIsMetByTheValueThatItHasOrThatComes) {
    const Ended ended = play_well(R"([[steps]]
expect = {output = "reader.temperature_out", is = 36.5, within = 20}
[[steps]]
expect = {output = "reader.temperature_out", is = 36.5, within = 0.5}
[[steps]]
expect = {output = "guard.temperature_ok_out", is = true, within = 20}
[[steps]]
set = {"temperature.main" = 73.0}
expect = {output = "guard.temperature_ok_out", is = false, within = 20}
[[steps]]
set = {"temperature.main" = 59.0}
expect = {output = "reader.temperature_out", between = [58, 59], within = 20}
[[steps]]
expect = {output = "reader.temperature_out", above = 58.5, below = 60, within = 20}
)",
                                  guard());
    EXPECT_THAT(with("\"met\":true", lines(ended.out)), SizeIs(6));
}

TEST_F(HostExpectation, OfAnOutputSaysWhichValuesCameInstead) {
    EXPECT_EQ(failure(R"([[steps]]
expect = {output = "reader.temperature_out", is = 36.5, within = 20}
[[steps]]
after = 1
set = {"temperature.main" = 40.0}
run = ["sleep", "1"]
expect = {output = "reader.temperature_out", above = 50, within = 0.5}
)"),
              "fenwa-camera: s.toml:3:1: expected reader.temperature_out to be above 50.0 within "
              "0.5 s; values: 40.0 at T s\n");
}

TEST_F(HostExpectation, OfAnAbsentValueTakesTheWholeTimeAndFailsWhenItComes) {
    const auto begin = steady_clock::now();
    play_well(R"([[steps]]
expect = {output = "guard.temperature_ok_out", is = true, within = 20}
[[steps]]
expect = {output = "guard.temperature_ok_out", is = false, absent = true, within = 1}
)",
              guard());
    EXPECT_GE(steady_clock::now() - begin, seconds(1));
    EXPECT_EQ(failure(R"([[steps]]
expect = {output = "guard.temperature_ok_out", is = true, within = 20}
[[steps]]
set = {"temperature.main" = 73.0}
expect = {output = "guard.temperature_ok_out", is = false, absent = true, within = 20}
)"),
              "fenwa-camera: s.toml:3:1: expected guard.temperature_ok_out not to be false within "
              "20.0 s; it came at T s\n");
}

TEST_F(HostExpectation, NeedsAHostThatAnswers) {
    const std::string sentence =
        "fenwa-camera: s.toml:1:1: expected guard.temperature_ok_out {}to be false within 1.0 s; "
        "no host answers at 'com.tarlo.Fenwa.Host1'\n";
    EXPECT_EQ(failure("[[steps]]\nexpect = {output = \"guard.temperature_ok_out\", is = false, "
                      "within = 1}\n",
                      {"sleep", "60"}),
              fmt::format(fmt::runtime(sentence), ""));
    EXPECT_EQ(failure("[[steps]]\nexpect = {output = \"guard.temperature_ok_out\", is = false, "
                      "absent = true, within = 1}\n",
                      {"sleep", "60"}),
              fmt::format(fmt::runtime(sentence), "not "))
        << "what nobody shows is not absent";
}

TEST_F(HostExpectation, NamesAnotherHost) {
    play_well(R"([[steps]]
expect = {output = "reader.temperature_out", is = 36.5, host = "com.example.Guard", within = 20}
)",
              guard("--control=com.example.Guard"));
}

TEST_F(HostExpectation, OfWhatTheGraphDoesNotHaveFailsAtOnce) {
    const auto begin = steady_clock::now();
    EXPECT_THAT(failure("[[steps]]\nexpect = {output = \"reader.temperature_uot\", is = 1, "
                        "within = 60}\n"),
                HasSubstr("; the host refuses: the block 'reader' has no port 'temperature_uot'"));
    EXPECT_THAT(failure("[[steps]]\nexpect = {status = \"guardian.phase\", is = \"running\", "
                        "within = 60}\n"),
                EndsWith("; the host has no block of 'guardian.phase'\n"));
    EXPECT_LT(steady_clock::now() - begin, seconds(40));
}

TEST_F(HostExpectation, OfALogLineLooksAtThoseSinceTheStepBefore) {
    const Ended ended = play_well(R"([[steps]]
expect = {output = "guard.temperature_ok_out", is = true, within = 20}
[[steps]]
set = {"temperature.main" = 73.0}
run = ["sleep", "0.5"]
expect = {log = "guard", contains = "temperature_ok_out = false", within = 20}
[[steps]]
expect = {log = "guard", contains = "temperature_ok_out = false", absent = true, within = 0.5}
)",
                                  guard());
    EXPECT_THAT(with("\"met\":true", lines(ended.out)), SizeIs(3));
    EXPECT_EQ(failure(R"([[steps]]
expect = {output = "guard.temperature_ok_out", is = true, within = 20}
[[steps]]
set = {"temperature.main" = 73.0}
expect = {log = "guard", contains = "cold", within = 2}
)"),
              "fenwa-camera: s.toml:3:1: expected a log line of guard that contains \"cold\" "
              "within 2.0 s; log lines: \"Setting temperature_ok_out = false\" at T s\n");
}

TEST_F(HostExpectation, OfStatusLooksAtOnePartOfIt) {
    const Ended ended = play(R"([[steps]]
expect = {output = "guard.temperature_ok_out", is = true, within = 20}
[[steps]]
expect = {status = "guard.phase", is = "running", within = 20}
[[steps]]
after = 1
stop = "temperature"
expect = {status = "guard.waits_for", contains = "com.tarlo.TemperatureController", within = 20}
)",
                             guard());
    EXPECT_EQ(ended.code, 0) << ended.err;
    EXPECT_THAT(with("\"met\":true", lines(ended.out)), SizeIs(3));
}

TEST_F(ScenarioScene, FailsAtItsTimeout) {
    const Ended ended = play("timeout = 0.5\n[[steps]]\nsay = \"Hello.\"\n[[steps]]\nat = 60\n");
    EXPECT_EQ(ended.code, 1);
    EXPECT_EQ(plain(ended.err),
              "fenwa-camera: s.toml:4:1: the scenario takes longer than its timeout of 0.5 s\n");
    play_well("timeout = 60\n[[steps]]\nsay = \"Hello.\"\n");
}

}  // namespace
}  // namespace test
