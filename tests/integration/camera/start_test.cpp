// Command lines and files that are wrong: nothing starts.
#include <gmock/gmock.h>

#include "tests/integration/camera/camera_scene.hpp"

namespace test {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::StartsWith;

using CameraStart = CameraScene;

struct CommandLine {
    std::vector<std::string> arguments;
    std::string sentence;
};

const std::string not_whole = " is not a whole number of at most 64 bits, in decimal digits";

TEST_F(CameraStart, AWrongCommandLineIsOneLineAndExitCode2) {
    const std::vector<CommandLine> wrong = {
        {{"rnu"}, "unknown command 'rnu'; did you mean 'run'?"},
        {{"play"}, "unknown command 'play' (see fenwa-camera --help)"},
        {{"run", "--bus", "x", "--private-bus"}, "--bus excludes --private-bus"},
        {{"run", "--format", "xml"}, "--format: xml not in {text,json}"},
        {{"run", "--color", "pink"}, "--color: pink not in {auto,always,never}"},
        {{"set", "temperature.main"}, "VALUE is required"},
        {{"start"}, "SERVICE is required"},
        {{"fail"}, "MEMBER is required"},
        {{"fail", "G", "--seed", "1", "--drop"}, "--seed requires --probability"},
        {{"fail", "G", "--times", "x", "--drop"}, "--times: 'x'" + not_whole},
        {{"fail", "G", "--times", "0x10", "--drop"}, "--times: '0x10'" + not_whole},
        {{"fail", "G", "--times", " 1", "--drop"}, "--times: ' 1'" + not_whole},
        {{"fail", "G", "--times", "1.5", "--drop"}, "--times: '1.5'" + not_whole},
        {{"fail", "G", "--delay", "1_000"}, "--delay: '1_000'" + not_whole},
        {{"fail", "G", "--delay", "9223372036854775808"},
         "--delay: '9223372036854775808'" + not_whole},
        {{"fail", "G", "--drop", "--probability", "1", "--seed", "0b1"},
         "--seed: '0b1'" + not_whole},
        {{"fail", "G", "--drop", "--probability", "0x1p-1"},
         "--probability: '0x1p-1' is not a number in decimal digits"},
        {{"fail", "G", "--delay=", "5"}, "--delay: the value behind '=' is missing"},
        {{"show", "--formt", "json"}, "unknown option '--formt'; did you mean '--format'?"},
        {{"activate", "temperature"},
         "'activate' is for the bus daemon to run: DBUS_STARTER_ADDRESS is not set"},
    };
    for (const CommandLine& line : wrong) {
        const Ended ended = run(line.arguments, {{"DBUS_STARTER_ADDRESS", ""}});
        EXPECT_EQ(ended.code, 2) << line.sentence;
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(ended.err, "fenwa-camera: " + line.sentence + "\n");
    }
}

TEST_F(CameraStart, ClearingAFaultGoesWithNothingElse) {
    for (const std::vector<std::string>& option : std::vector<std::vector<std::string>>{
             {"--drop"}, {"--silent"}, {"--malformed"}, {"--delay", "5"}, {"--times", "1"}}) {
        std::vector<std::string> arguments{"fail", "GetTemperature", "--clear"};
        arguments.insert(arguments.end(), option.begin(), option.end());
        const Ended ended = run(arguments);
        EXPECT_EQ(ended.code, 2);
        EXPECT_THAT(ended.err, HasSubstr("excludes"));
    }
}

TEST_F(CameraStart, HelpAndVersionGoToStdout) {
    for (const char* verb : {"run", "set", "start", "stop", "restart", "fail", "press", "show"}) {
        const Ended help = run({verb, "--help"});
        EXPECT_EQ(help.code, 0);
        EXPECT_EQ(help.err, "");
        EXPECT_THAT(help.out, HasSubstr("Usage: fenwa-camera " + std::string(verb)));
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

TEST_F(CameraStart, MistakesOfBothFilesArePrintedAndNothingStarts) {
    const std::string config = folder().write("c.toml", "[[sensors]]\nname = 5\nid = 1\n");
    const std::string scenario = folder().write("s.toml", "[[steps]]\nstop = \"x\"\n");
    const Ended ended = run({"run", "--private-bus", "--config", config, "--scenario", scenario,
                             "--", "sh", "-c", "echo started"});
    EXPECT_EQ(ended.code, 78);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(plain(ended.err), R"(c.toml:1:1: error: [[sensors]] has no 'temperature'
[[sensors]]
^
c.toml:2:8: error: 'name' of [[sensors]] must be a string, not an integer
name = 5
       ^
c.toml: 2 errors
s.toml:2:8: error: unknown service 'x'
stop = "x"
       ^
s.toml: 1 error
)");
    EXPECT_FALSE(files_left_behind());
}

TEST_F(CameraStart, AScenarioIsCheckedAgainstTheSensorsOfTheConfiguration) {
    const std::string config =
        folder().write("c.toml", "[[sensors]]\nname = \"zoom\"\nid = 1\ntemperature = 1\n");
    const std::string scenario =
        folder().write("s.toml", "[[steps]]\nset = {\"temperature.main\" = 1}\n");
    const Ended ended = run({"run", "--private-bus", "--config", config, "--scenario", scenario});
    EXPECT_EQ(ended.code, 78);
    EXPECT_THAT(plain(ended.err), StartsWith("s.toml:2:8: error: unknown sensor 'main'\n"));
}

TEST_F(CameraStart, AFileThatIsNotThereEndsItWith66) {
    for (const char* option : {"--config", "--scenario"}) {
        const std::string path = (folder().path() / "nothing.toml").string();
        const Ended ended = run({"run", "--private-bus", option, path});
        EXPECT_EQ(ended.code, 66);
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(plain(ended.err),
                  "fenwa-camera: cannot read 'nothing.toml': No such file or directory\n");
    }
}

}  // namespace
}  // namespace test
