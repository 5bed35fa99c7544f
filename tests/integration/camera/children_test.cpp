// Programs that run on the camera's bus for as long as the camera plays.
#include <csignal>

#include "tests/integration/camera/scenario_scene.hpp"

namespace test {
namespace {

const std::string forever = "\necho child up\nwhile :; do sleep 0.02; done\n";

class CameraChild : public ScenarioScene {
  protected:
    /// Starts a camera with a child and waits until that has written "child up".
    [[nodiscard]] std::unique_ptr<Process> start_child(const Lines& child,
                                                       const std::string& scenario = "") const {
        auto camera = start(play_command(scenario, child, "text"));
        EXPECT_TRUE(camera->wait_for_text("child up")) << camera->err();
        return camera;
    }
    /// The same with a child in shell.
    [[nodiscard]] std::unique_ptr<Process> start_shell(const std::string& text) const {
        return start_child({"sh", "-c", text});
    }

    /// Ends the camera with SIGTERM, after which no program and no file may be left.
    Ended terminate(Process& camera) const {
        Ended ended = camera.terminate();
        expect_nothing_left();
        return ended;
    }

    /// The event comes before the service goes down.
    static void expect_while_up(const std::string& event, const std::string& out) {
        ASSERT_THAT(out, HasSubstr(event));
        EXPECT_LT(out.find(event), out.find("temperature: down"));
    }
};

TEST_F(CameraChild, FindsTheBusWhereProgramsLookForTheSystemBus) {
    // The camera's own environment names another bus, and the child shall not see that one.
    const Ended ended = play_well("", script("exec \"$0\" set temperature.main 40"));
    EXPECT_THAT(ended.out, HasSubstr("\"value\":40.0"));
    // No shell in between, which would tidy its environment up.
    Lines buses;
    std::istringstream out(play_well("", {"env"}, "text").out);
    for (std::string line; std::getline(out, line);) {
        if (line.starts_with("env | DBUS_SYSTEM_BUS_ADDRESS="))
            buses.push_back(plain(line));
    }
    EXPECT_THAT(buses, ElementsAre("env | DBUS_SYSTEM_BUS_ADDRESS=BUS"));
}

TEST_F(CameraChild, StartsWithItsArgumentsWhenTheCameraIsReady) {
    const std::string out =
        play_well("", {"sh", "-c", "echo \"child: $1 $2\"", "name", "a b", "--bus"}, "text").out;
    ASSERT_THAT(out, HasSubstr("child: a b --bus\n"));
    EXPECT_LT(out.find("ready on"), out.find("child: a b --bus\n"));
}

TEST_F(CameraChild, HasNothingOnItsInput) {
    const Ended ended = run_script("echo for the camera | \"$0\" run --private-bus -- cat");
    EXPECT_EQ(ended.code, 0) << ended.err;
    EXPECT_EQ(ended.out.find("for the camera"), std::string::npos);
}

/// A child, or a scenario and a child, and how the camera ends with it.
struct Ending {
    const char* name;
    std::string scenario;
    std::string child;  ///< in shell
    int code;
    std::string sentence{};
};
void PrintTo(const Ending& ending, std::ostream* out) {
    *out << ending.name;
}

class ChildEnding : public ScenarioScene, public ::testing::WithParamInterface<Ending> {};

TEST_P(ChildEnding, EndsTheCameraWithItsExitCode) {
    const auto& [name, scenario, child, code, sentence] = GetParam();
    const Ended ended = play(scenario, {"sh", "-c", child});
    EXPECT_EQ(ended.code, code);
    EXPECT_EQ(plain(ended.err), sentence.empty() ? "" : "fenwa-camera: " + sentence + "\n");
    EXPECT_EQ(lines(ended.out).back(), R"({"event":"exit","status":)" + std::to_string(code) + '}');
}

const std::string long_scenario = "[[steps]]\nat = 60\n";

INSTANTIATE_TEST_SUITE_P(
    Of, ChildEnding,
    ::testing::Values(
        Ending{"OneThatDoesWell", "", "exit 0", 0},
        Ending{"OneThatFails", "", "exit 7", 7, "'sh' ended with exit code 7"},
        Ending{"OneThatASignalEnds", "", "kill -USR1 $$", 138, "'sh' ended with exit code 138"},
        Ending{"OneThatSomebodyElseKills", "", "kill -TERM $$", 143,
               "'sh' ended with exit code 143"},
        Ending{"OneThatEndsBeforeTheScenario", long_scenario, "exit 0", 1,
               "'sh' ended with exit code 0, before the scenario did"},
        Ending{"OneThatFailsBeforeTheScenarioEnds", long_scenario, "exit 9", 9,
               "'sh' ended with exit code 9"},
        Ending{"OneThatTheEndOfTheScenarioEnds", "[[steps]]\nat = 0.2\n", "exec sleep 60", 0},
        Ending{"OneThatFailsAfterAnExpectation",
               "[[steps]]\nexpect = {state = 'temperature.main', is = 0, within = 0.2}\n",
               "trap 'exit 9' TERM" + forever, 1,
               "s.toml:1:1: expected temperature.main to be 0.0 within 0.2 s; it is 36.5"},
        Ending{"OneThatLeavesAProgramRunning", "", "setsid sleep 60 & exit 0", 0}),
    [](const auto& ending) { return ending.param.name; });

TEST_F(CameraChild, IsAskedToEndAtTheEndOfTheScenario) {
    // The child tells the scenario that it is ready to be asked.
    const Ended ended = play_well(
        "[[steps]]\nexpect = {state = 'temperature.lens', is = 1, within = 20}\n"
        "set = {temperature.main = 40}\n",
        script("trap 'camera set temperature.main 50 && exit 0' TERM\n"
               "camera set temperature.lens 1" +
               forever),
        "text");
    EXPECT_THAT(ended.out, HasSubstr("sensor main is 40.0"));
    expect_while_up("sensor main is 50.0", ended.out);
}

TEST_F(CameraChild, IsAskedToEndOnSigtermWhileTheServicesAreStillThere) {
    const auto camera =
        start_child(script("trap 'camera set temperature.main 50 && exit 5' TERM" + forever));
    const Ended ended = terminate(*camera);
    EXPECT_EQ(ended.code, 5) << "the child's own exit code";
    EXPECT_EQ(ended.err, "fenwa-camera: 'sh' ended with exit code 5\n");
    expect_while_up("sensor main is 50.0", ended.out);
}

// The camera sent the signal, so an end by it is what was asked for.
TEST_F(CameraChild, ThatLetsTheSignalEndItHasDoneWell) {
    const auto camera = start_shell("echo child up; exec sleep 60");
    const Ended ended = terminate(*camera);
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
}

TEST_F(CameraChild, OfAScenarioIsAskedToEndToo) {
    const auto camera = start_child({}, R"([[steps]]
run = ["sh", "-c", "trap 'echo asked; exit 0' TERM; echo child up; while :; do sleep 0.02; done"]
)");
    const Ended ended = terminate(*camera);
    EXPECT_EQ(ended.code, 0);
    EXPECT_THAT(ended.out, HasSubstr("asked"));
}

TEST_F(CameraChild, DoesNotGetTheTerminalsSigint) {
    const auto camera = start_shell("trap 'echo interrupted' INT" + forever);
    camera->send_signal(SIGINT);
    const Ended ended = camera->wait();
    EXPECT_EQ(ended.out.find("interrupted"), std::string::npos);
    EXPECT_EQ(ended.code, 0);
}

TEST_F(CameraChild, IsNotWaitedForAfterASecondSignal) {
    const auto camera = start_shell("trap 'echo asked' TERM" + forever);
    const auto begin = steady_clock::now();
    camera->send_signal(SIGTERM);
    ASSERT_TRUE(camera->wait_for_text("asked"));
    camera->send_signal(SIGINT);
    EXPECT_EQ(camera->wait().signal, SIGINT);
    EXPECT_LT(steady_clock::now() - begin, seconds(9)) << "before it is killed";
    expect_nothing_left();
}

TEST_F(CameraChild, ThatIgnoresSigtermIsKilledAfterTenSecondsWithAllThatItHasStarted) {
    const auto camera = start_shell(
        "trap '' TERM; setsid sh -c 'sleep 60 & sleep 60' & echo child up; exec sleep 60");
    const auto begin = steady_clock::now();
    const Ended ended = terminate(*camera);
    EXPECT_GE(steady_clock::now() - begin, seconds(10));
    EXPECT_LT(steady_clock::now() - begin, seconds(19));
    EXPECT_EQ(ended.code, 128 + SIGKILL);
    EXPECT_EQ(ended.err,
              "fenwa-camera: programs still run 10 s after SIGTERM; killing them\n"
              "fenwa-camera: 'sh' ended with exit code 137\n");
}

TEST_F(CameraChild, WhatItLeavesRunningIsAskedToEndWhileTheServicesAreStillThere) {
    const auto camera = start_child(script(
        "( trap 'sleep 0.5; camera set temperature.main 50; exit 0' TERM" + forever + ") & wait"));
    const Ended ended = terminate(*camera);
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
    expect_while_up("sensor main is 50.0", ended.out);
}

class CameraChildren : public ScenarioScene {
  protected:
    /// The arguments after the first `--` for two programs.
    static Lines both(const Lines& first, const Lines& second) {
        return first + Lines{"--"} + second;
    }

    /// A program that says `name`, and when it is asked to end, says that and ends with `code`.
    static Lines polite(const std::string& name, int code) {
        return {"sh", "-c",
                "trap 'echo " + name + " asked; exit " + std::to_string(code) + "' TERM; echo " +
                    name + " up; while :; do sleep 0.02; done"};
    }
    /// A program that waits, on the camera's bus, until the sensor `lens` shows 1.
    static Lines wait_and(const std::string& then) {
        return script("until camera show | grep -q 'temperature.lens *1.0'; do sleep 0.02; done\n" +
                      then);
    }
};

TEST_F(CameraChildren, AllFindTheBusAndTheCameraEndsWhenAllHaveEnded) {
    const std::string out = play_well("", both(wait_and("camera set temperature.main 2"),
                                               script("camera set temperature.lens 1")))
                                .out;
    EXPECT_LT(out.find("\"temperature.lens\",\"value\":1.0"),
              out.find("\"temperature.main\",\"value\":2.0"));
}

TEST_F(CameraChildren, TheFirstThatFailsEndsTheOthers) {
    // The last one fails once the first has told that it can be asked to end.
    const Ended ended =
        play("", both(script("trap 'echo one asked; exit 5' TERM\ncamera set temperature.lens 1\n"
                             "while :; do sleep 0.02; done"),
                      wait_and("exit 7")));
    EXPECT_EQ(ended.code, 7) << "the first one's code counts";
    EXPECT_EQ(ended.err, "fenwa-camera: 'sh' ended with exit code 7\n");
    EXPECT_THAT(ended.out, HasSubstr("one asked\n"));
}

TEST_F(CameraChildren, AreAllAskedToEndOnSigterm) {
    const auto camera = start(play_command("", both(polite("one", 0), polite("two", 6)), "text"));
    std::size_t up = 0;
    while (up < 2 && camera->wait_for_line([](const std::string& line) {
        return line == "sh-1 | one up" || line == "sh-2 | two up";
    }))
        ++up;
    ASSERT_EQ(up, 2U) << camera->out();
    const Ended ended = camera->terminate();
    EXPECT_EQ(ended.code, 6);
    EXPECT_EQ(ended.err, "fenwa-camera: 'sh' ended with exit code 6\n");
    EXPECT_THAT(ended.out, AllOf(HasSubstr("one asked\n"), HasSubstr("two asked\n")));
    expect_nothing_left();
}

TEST_F(CameraChildren, OneThatCannotBeStartedEndsTheOthersInPeace) {
    EXPECT_EQ(play("", {"/"}).err, "fenwa-camera: cannot start '/': Permission denied\n");
    const Ended ended = play("", both({"sleep", "60"}, {"/nonexistent/program"}));
    EXPECT_EQ(ended.code, 66);
    EXPECT_EQ(ended.err,
              "fenwa-camera: cannot start '/nonexistent/program': No such file or directory\n");
    EXPECT_EQ(lines(ended.out), whole({}, 66));
}

TEST_F(CameraChildren, BeforeAScenarioIsOverOneMayEndButNotAll) {
    play_well("[[steps]]\nexpect = {state = 'temperature.lens', is = 1, within = 20}\n",
              both({"true"}, script("camera set temperature.lens 1; exec sleep 60")));
    const Ended none_left = play(long_scenario, both({"true"}, {"true"}));
    EXPECT_EQ(none_left.code, 1);
    EXPECT_EQ(none_left.err,
              "fenwa-camera: 'true' ended with exit code 0, before the scenario did\n");
}

}  // namespace
}  // namespace test
