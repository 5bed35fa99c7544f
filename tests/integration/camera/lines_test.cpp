// The lines of a camera and of the programs that it runs, on one screen.
#include <algorithm>

#include "tests/integration/camera/scenario_scene.hpp"
#include "tests/support/pattern.hpp"

namespace test {
namespace {

const std::string examples = FENWA_EXAMPLES;

class ScreenLines : public ScenarioScene {
  protected:
    /// The lines of the programs, in text, without those of the camera.
    static Lines of_programs(const std::string& out) {
        Lines lines;
        std::istringstream stream(out);
        for (std::string line; std::getline(stream, line);) {
            if (line.find(" | ") != std::string::npos)
                lines.push_back(line);
        }
        return lines;
    }
    [[nodiscard]] Ended run_shell(const std::string& script, const Lines& options = {}) const {
        return run(Lines{"run", "--private-bus"} + options + Lines{"--", "sh", "-c", script});
    }

    /// The seconds at the beginnings of lines, with and without a name before them.
    static std::vector<double> seconds_of(const std::string& out) {
        static const Pattern time("^([a-z0-9-]+ *\\| )? *([0-9]+\\.[0-9]{3})  .*");
        std::vector<double> all;
        std::istringstream stream(out);
        for (std::string line; std::getline(stream, line);) {
            if (const Groups groups = time.match(line); !groups.empty())
                all.push_back(std::stod(groups[2]));
        }
        return all;
    }
};

TEST_F(ScreenLines, OfAProgramHaveItsNameInFront) {
    const Ended ended = run_shell("echo one; echo two >&2; printf three");
    EXPECT_EQ(ended.code, 0);
    EXPECT_THAT(of_programs(ended.out), ElementsAre("sh | one", "sh | three"))
        << "the last one is whole, and not lost";
    EXPECT_EQ(ended.err, "sh | two\n");
}

TEST_F(ScreenLines, OfProgramsOfOneNameAreNumbered) {
    const Ended ended = run({"run", "--private-bus", "--", "sh", "-c", "echo a", "--", "echo", "b",
                             "--", "/bin/sh", "-c", "echo c"});
    Lines all = of_programs(ended.out);
    std::sort(all.begin(), all.end());
    EXPECT_THAT(all, ElementsAre("echo | b", "sh-1 | a", "sh-2 | c"));
}

TEST_F(ScreenLines, StayWholeAndInOrderAndAreNotLost) {
    const Ended ended = run({"run", "--private-bus", "--", "sh", "-c",
                             "i=0; while [ $i -lt 5000 ]; do printf %s line; printf ' %s\\n' $i; "
                             "i=$((i+1)); done",
                             "--", "sh", "-c", "seq 100000 104999"});
    Lines first;
    Lines second;
    for (const std::string& line : of_programs(ended.out))
        (line.starts_with("sh-1") ? first : second).push_back(line);
    ASSERT_EQ(first.size(), 5000U);
    ASSERT_EQ(second.size(), 5000U);
    for (int i = 0; i < 5000; ++i) {
        ASSERT_EQ(first[i], "sh-1 | line " + std::to_string(i));
        ASSERT_EQ(second[i], "sh-2 | " + std::to_string(100000 + i));
    }
}

TEST_F(ScreenLines, OfAProgramStayAsTheyAreInJson) {
    const Ended ended = run_shell("echo one; echo two >&2", {"--format", "json"});
    EXPECT_THAT(ended.out, HasSubstr("\none\n"));
    EXPECT_EQ(ended.err, "two\n");
}

TEST_F(ScreenLines, HaveColoursWhereTheCamerasHave) {
    const std::string show = "echo \"<$CLICOLOR_FORCE:$NO_COLOR>\"";
    EXPECT_THAT(run_shell(show, {"--color", "always"}).out,
                HasSubstr("\033[1;36msh |\033[0m <1:>\n"));
    EXPECT_THAT(run_shell(show, {"--color", "never"}).out, HasSubstr("sh | <:1>\n"));
    EXPECT_THAT(run_shell(show).out, HasSubstr("sh | <:>\n"));
}

TEST_F(ScreenLines, ShareOneStart) {
    const Ended ended = run_shell("sleep 1; exec '" FENWA_PROGRAM "' run '" + examples +
                                  "/graphs/temperature.toml' --for 1");
    const std::vector<double> times = seconds_of(ended.out);
    ASSERT_GE(times.size(), 3U) << ended.out;
    EXPECT_TRUE(std::is_sorted(times.begin(), times.end())) << ended.out;
    const Lines values = with("temperature_out", of_programs(ended.out));
    ASSERT_THAT(values, SizeIs(1));
    EXPECT_GE(seconds_of(values[0])[0], 1.0) << "not since the host's own start";
}

TEST_F(ScreenLines, NeverStepBackInTime) {
    const Ended ended =
        run({"run", "--private-bus", "--scenario", examples + "/scenarios/guard-and-budget.toml",
             "--", FENWA_PROGRAM, "run", examples + "/graphs/temperature-guard.toml", "--",
             FENWA_PROGRAM, "run", examples + "/graphs/power-channel-0.toml", "--", FENWA_PROGRAM,
             "run", examples + "/graphs/power-channel-1.toml"});
    EXPECT_EQ(ended.code, 0) << ended.err;
    const std::vector<double> times = seconds_of(ended.out);
    ASSERT_GE(times.size(), 30U) << ended.out;
    EXPECT_TRUE(std::is_sorted(times.begin(), times.end())) << ended.out;
}

TEST_F(ScreenLines, AreInTheOrderOfTheirTimes) {
    const std::string written = (folder().path() / "written").string();
    const Ended ended = run(
        {"run", "--private-bus", "--", "sh", "-c",
         "sleep 0.7; printf '   0.600  b\\n'; : > '" + written + "'", "--", "sh", "-c",
         "until [ -e '" + written + "' ]; do :; done; printf '\\033[2m   0.500\\033[0m  a\\n'"});
    EXPECT_THAT(of_programs(ended.out),
                ElementsAre("sh-2 | \033[2m   0.500\033[0m  a", "sh-1 |    0.600  b"));
}

TEST_F(ScreenLines, TellTheStoryAndMoreOnlyIfAsked) {
    const std::string text = R"([[steps]]
say = "Hello."
set = {"temperature.main" = 40}
run = ["sh", "-c", "exec ')" FENWA_CAMERA_PROGRAM
                             R"(' show --bus \"$DBUS_SYSTEM_BUS_ADDRESS\" > /dev/null"]
restart = "overlay"
expect = {state = "temperature.main", is = 40}
[[steps]]
reply = {call = "GetTemperatureIdFromName", values = [3], within = 20}
)";
    const std::string call =
        "busctl --address=\"$DBUS_SYSTEM_BUS_ADDRESS\" call "
        "com.tarlo.TemperatureController /com/tarlo/TemperatureController "
        "com.tarlo.TemperatureController GetTemperatureIdFromName s main; "
        "exec sleep 60";
    const auto own = [&](const Lines& options) {
        const Ended ended = run(Lines{"run", "--private-bus"} + options + scenario(text) +
                                Lines{"--", "sh", "-c", call});
        EXPECT_EQ(ended.code, 0) << ended.err;
        Lines all;
        for (const std::string& line : lines(ended.out)) {
            if (!line.empty())  // of the program, it is shorter than the time
                all.push_back(line);
        }
        return all;
    };
    EXPECT_THAT(own({}),
                ElementsAre(StartsWith("ready on BUS, services: "), "Hello.",
                            "temperature: sensor main is 40.0", "overlay: down: restarting",
                            StartsWith("overlay: up as "),
                            "scenario: as expected: temperature.main to be 40.0 within 5.0 s",
                            "the end, with exit code 0"));
    const Lines all = own({"--verbose"});
    EXPECT_THAT(with("calls GetTemperatureIdFromName(\"main\")", all), SizeIs(1));
    EXPECT_THAT(with("answers ", all), SizeIs(1));
    EXPECT_THAT(with("overlay: up as", all), SizeIs(2));
}

TEST_F(ScreenLines, TakeTheirTimesFromTheOption) {
    EXPECT_THAT(run_shell("true", {"--timestamps", "none"}).out, StartsWith("ready on unix:"));
    EXPECT_THAT(run_shell("true", {"--timestamps", "wall"}).out,
                ContainsRegex("^20[0-9][0-9]-[0-9-]*T[0-9:.]*[+-][0-9:]*  ready on"));
}

}  // namespace
}  // namespace test
