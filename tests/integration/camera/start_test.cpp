// Command lines and files that are wrong: nothing starts.
#include "tests/integration/camera/camera_scene.hpp"
#include "tests/support/mistake_files.hpp"

namespace test {
namespace {

using CameraStart = CameraScene;

/// A wrong command line and the sentence that refuses it.
struct WrongLine {
    Lines arguments;
    std::string sentence;
};
void PrintTo(const WrongLine& line, std::ostream* out) {
    *out << line.sentence;
}

class WrongCommandLine : public CameraScene, public ::testing::WithParamInterface<WrongLine> {};

TEST_P(WrongCommandLine, IsOneLineAndExitCode2) {
    const Ended ended =
        run(GetParam().arguments, {{"DBUS_SESSION_BUS_ADDRESS", ""}, {"DBUS_STARTER_ADDRESS", ""}});
    EXPECT_EQ(ended.code, 2);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.err, "fenwa-camera: " + GetParam().sentence + "\n");
}

const std::string no_program = "a '--' has no program after it";
const std::string not_whole = " is not a whole number of at most 64 bits, in decimal digits";

INSTANTIATE_TEST_SUITE_P(
    Each, WrongCommandLine,
    ::testing::Values(
        WrongLine{{"rnu"}, "unknown command 'rnu'; did you mean 'run'?"},
        WrongLine{{"play"}, "unknown command 'play' (see fenwa-camera --help)"},
        WrongLine{{"run", "--bus", "x", "--private-bus"}, "--bus excludes --private-bus"},
        WrongLine{{"run", "--format", "xml"}, "--format: xml not in {text,json}"},
        WrongLine{{"run", "--color", "pink"}, "--color: pink not in {auto,always,never}"},
        WrongLine{{"set", "temperature.main"}, "VALUE is required"},
        WrongLine{{"start"}, "SERVICE is required"}, WrongLine{{"fail"}, "MEMBER is required"},
        WrongLine{{"fail", "G", "--seed", "1", "--drop"}, "--seed requires --probability"},
        WrongLine{{"fail", "G", "--times", "x", "--drop"}, "--times: 'x'" + not_whole},
        WrongLine{{"fail", "G", "--times", "1.5", "--drop"}, "--times: '1.5'" + not_whole},
        WrongLine{{"fail", "G", "--delay", "9223372036854775808"},
                  "--delay: '9223372036854775808'" + not_whole},
        WrongLine{{"fail", "G", "--drop", "--probability", "1", "--seed", "0b1"},
                  "--seed: '0b1'" + not_whole},
        WrongLine{{"fail", "G", "--drop", "--probability", "0x1p-1"},
                  "--probability: '0x1p-1' is not a number in decimal digits"},
        WrongLine{{"fail", "G", "--delay=", "5"}, "--delay: the value after '=' is missing"},
        WrongLine{{"show", "--formt", "json"},
                  "unknown option '--formt'; did you mean '--format'?"},
        WrongLine{{"activate", "temperature"},
                  "'activate' is for the bus daemon to run: neither DBUS_STARTER_ADDRESS nor "
                  "DBUS_SESSION_BUS_ADDRESS is set"},
        WrongLine{{"run", "--private-bus", "--", "true", "--"}, no_program},
        WrongLine{{"run", "--private-bus", "--", "--", "true"}, no_program},
        WrongLine{{"run", "--private-bus", "--", "true", "--", "--", "true"}, no_program},
        WrongLine{{"run", "--private-bus", "--without", "temprature"},
                  "unknown service 'temprature'; did you mean 'temperature'?"}));

TEST_F(CameraStart, ClearingAFaultGoesWithNothingElse) {
    for (const Lines& option : std::vector<Lines>{
             {"--drop"}, {"--silent"}, {"--malformed"}, {"--delay", "5"}, {"--times", "1"}}) {
        const Ended ended = run(Lines{"fail", "GetTemperature", "--clear"} + option);
        EXPECT_EQ(ended.code, 2);
        EXPECT_THAT(ended.err, HasSubstr("excludes"));
    }
}

TEST_F(CameraStart, HelpAndVersionGoToStdout) {
    for (const char* name : {"run", "set", "start", "stop", "restart", "fail", "press", "show"}) {
        const Ended help = run({name, "--help"});
        EXPECT_EQ(help.code, 0);
        EXPECT_EQ(help.err, "");
        EXPECT_THAT(help.out, HasSubstr("Usage: fenwa-camera " + std::string(name)));
    }
    for (const ServiceNames& service : camera_services)
        EXPECT_THAT(run({"run", "--help"}).out,
                    ContainsRegex(std::string("Services: .*") + service.name + "[,.]"));
    const Ended help = run({"-h"});
    EXPECT_EQ(help.code, 0);
    EXPECT_THAT(help.out, HasSubstr("\n  fail "));
    const Ended version = run({"--version"});
    EXPECT_EQ(version.code, 0);
    EXPECT_THAT(version.out, StartsWith("fenwa-camera "));
}

const std::filesystem::path graphs = FENWA_GRAPHS;

class CameraFileMistakes : public CameraScene, public ::testing::WithParamInterface<MistakeFile> {
  protected:
    /// Runs a camera with this option and file in the folder of the file.
    [[nodiscard]] static Ended run_with(const std::string& option, const MistakeFile& file) {
        return run_program(file.command(
            {FENWA_CAMERA_PROGRAM, "run", "--private-bus", option, file.toml(), "--", "false"}));
    }
};

TEST_P(CameraFileMistakes, AreAllPrintedAtTheirPlacesAndNothingStarts) {
    const bool scenario = GetParam().folder.filename() == "scenarios";
    const Ended ended = run_with(scenario ? "--scenario" : "--config", GetParam());
    EXPECT_EQ(ended.code, 78);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.err, GetParam().stderr_text());
}

INSTANTIATE_TEST_SUITE_P(Scenario, CameraFileMistakes,
                         ::testing::ValuesIn(mistake_files(graphs / "scenarios")),
                         mistake_test_name);
INSTANTIATE_TEST_SUITE_P(Configuration, CameraFileMistakes,
                         ::testing::ValuesIn(mistake_files(graphs / "configurations")),
                         mistake_test_name);

using CameraFiles = CameraScene;

TEST_F(CameraFiles, MistakesOfBothArePrinted) {
    const std::string config = folder().write("c.toml", "power = 1\n");
    const std::string scenario = folder().write("s.toml", "");
    const Ended ended = run({"run", "--private-bus", "--config", config, "--scenario", scenario});
    EXPECT_EQ(ended.code, 78);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(
        plain(ended.err),
        R"(c.toml:1:9: error: 'power' of the camera's configuration must be a table, not an integer
power = 1
        ^
c.toml: 1 error
s.toml:1:1: error: the scenario has no 'steps'
s.toml: 1 error
)");
    EXPECT_FALSE(files_left_behind());
}

TEST_F(CameraFiles, AScenarioIsCheckedAgainstTheSensorsOfTheConfiguration) {
    const std::string config =
        folder().write("c.toml", "[[sensors]]\nname = \"zoom\"\nid = 1\ntemperature = 1\n");
    const std::string scenario =
        folder().write("s.toml", "[[steps]]\nset = {\"temperature.main\" = 1}\n");
    const Ended ended = run({"run", "--private-bus", "--config", config, "--scenario", scenario});
    EXPECT_EQ(ended.code, 78);
    EXPECT_THAT(plain(ended.err), StartsWith("s.toml:2:8: error: unknown sensor 'main'\n"));
}

TEST_F(CameraFiles, OneThatIsNotThereEndsItWith66) {
    for (const char* option : {"--config", "--scenario"}) {
        const Ended ended = run({"run", "--private-bus", option, "nothing.toml"});
        EXPECT_EQ(ended.code, 66);
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(ended.err,
                  "fenwa-camera: cannot read 'nothing.toml': No such file or directory\n");
    }
}

}  // namespace
}  // namespace test
