// A program that runs on the camera's bus for as long as the camera plays.
#include <gmock/gmock.h>

#include <csignal>

#include "tests/integration/camera/scenario_scene.hpp"

namespace test {
namespace {

using std::chrono::steady_clock;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class CameraGuest : public ScenarioScene {
  protected:
    /// Starts a camera with a guest and waits until that has written "guest up".
    [[nodiscard]] std::unique_ptr<Process> start_guest(
        const std::vector<std::string>& guest) const {
        auto camera = start(command("", guest, "text"));
        EXPECT_TRUE(camera->wait_for_text("guest up")) << camera->err();
        return camera;
    }
};

const std::string forever = "\necho guest up\nwhile :; do sleep 0.02; done\n";

TEST_F(CameraGuest, FindsTheBusWhereProgramsLookForTheSystemBus) {
    // The camera's own environment names another bus, and the guest shall not see that one.
    const Ended ended = play("", script(R"(
printf 'guest: %s\n' "$DBUS_SYSTEM_BUS_ADDRESS"
env | grep -c '^DBUS_SYSTEM_BUS_ADDRESS='
exec "$0" set temperature.main 40
)"));
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
    std::istringstream out(ended.out);
    Lines guest;
    Lines sets;
    for (std::string line; std::getline(out, line);) {
        if (!line.starts_with('{'))
            guest.push_back(plain(line));
        else if (line.find("\"set\"") != std::string::npos)
            sets.push_back(line);
    }
    EXPECT_THAT(guest, ElementsAre("guest: BUS", "1"));
    EXPECT_THAT(sets, ElementsAre(HasSubstr("\"value\":40.0")));
}

TEST_F(CameraGuest, FindsNoOtherBusBesides) {
    // No shell in between, which would tidy its environment up.
    const Ended ended = play("", {"env"}, "text");
    EXPECT_EQ(ended.code, 0);
    Lines buses;
    std::istringstream out(ended.out);
    for (std::string line; std::getline(out, line);) {
        if (line.starts_with("DBUS_SYSTEM_BUS_ADDRESS="))
            buses.push_back(plain(line));
    }
    EXPECT_THAT(buses, ElementsAre("DBUS_SYSTEM_BUS_ADDRESS=BUS"));
}

TEST_F(CameraGuest, StartsWithItsArgumentsWhenTheCameraIsReady) {
    const Ended ended =
        play("", {"sh", "-c", "echo \"guest: $1 $2\"", "name", "a b", "--bus"}, "text");
    EXPECT_EQ(ended.code, 0);
    const std::size_t ready = ended.out.find("ready on");
    const std::size_t guest = ended.out.find("guest: a b --bus\n");
    ASSERT_NE(guest, std::string::npos) << ended.out;
    EXPECT_LT(ready, guest);
}

TEST_F(CameraGuest, HasNothingOnItsInput) {
    const Ended ended = run_program(
        {"sh", "-c", "echo for the camera | \"$0\" run --private-bus -- cat", FENWA_CAMERA_PROGRAM},
        {{"DBUS_SYSTEM_BUS_ADDRESS", unreachable_system_bus}, {"TMPDIR", temporary()}});
    EXPECT_EQ(ended.code, 0) << ended.err;
    EXPECT_EQ(ended.out.find("for the camera"), std::string::npos);
}

TEST_F(CameraGuest, EndsTheCameraWithItsOwnExitCode) {
    const Ended well = play("", {"true"});
    EXPECT_EQ(well.code, 0);
    EXPECT_EQ(well.err, "");
    EXPECT_THAT(between(well), IsEmpty());

    const Ended ill = play("", {"sh", "-c", "exit 7"});
    EXPECT_EQ(ill.code, 7);
    EXPECT_EQ(ill.err, "fenwa-camera: 'sh' ended with exit code 7\n");
    EXPECT_EQ(lines(ill.out).back(), R"({"event":"exit","status":7})");
}

TEST_F(CameraGuest, ThatASignalEndedGivesItsNumberAndAHundredAndTwentyEight) {
    const Ended ended = play("", {"sh", "-c", "kill -USR1 $$"});
    EXPECT_EQ(ended.code, 128 + SIGUSR1);
    EXPECT_EQ(ended.err, "fenwa-camera: 'sh' ended with exit code 138\n");
}

TEST_F(CameraGuest, ThatCannotBeStartedEndsItWith66) {
    const Ended ended = play("", {"/nonexistent/program"});
    EXPECT_EQ(ended.code, 66);
    EXPECT_EQ(ended.err,
              "fenwa-camera: cannot start '/nonexistent/program': No such file or directory\n");
    EXPECT_EQ(lines(ended.out).back(), R"({"event":"exit","status":66})");
    EXPECT_EQ(play("", {folder().path().string()}).code, 66);
}

TEST_F(CameraGuest, IsAskedToEndAtTheEndOfTheScenario) {
    // The guest tells the scenario that it is ready to be asked.
    const Ended ended = play(
        "[[steps]]\nexpect = {state = \"temperature.lens\", is = 1, within = 20}\n"
        "set = {\"temperature.main\" = 40}\n",
        script("trap 'camera set temperature.main 50 && exit 0' TERM\n"
               "camera set temperature.lens 1" +
               forever));
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
    const Lines sets = with("\"set\"", with("{", Lines{ended.out}));
    ASSERT_FALSE(sets.empty());
    EXPECT_THAT(ended.out, HasSubstr("\"value\":40.0"));
    EXPECT_THAT(ended.out, HasSubstr("\"value\":50.0"));
    EXPECT_LT(ended.out.find("\"value\":50.0"), ended.out.find("\"down\""));
}

TEST_F(CameraGuest, IsAskedToEndOnSigtermWhileTheServicesAreStillThere) {
    const auto camera =
        start_guest(script("trap 'camera set temperature.main 50 && exit 5' TERM" + forever));
    const Ended ended = camera->terminate();
    EXPECT_EQ(ended.code, 5) << "the guest's own exit code";
    EXPECT_EQ(ended.err, "fenwa-camera: 'sh' ended with exit code 5\n");
    EXPECT_LT(ended.out.find("sensor main is 50.0"), ended.out.find("temperature: down"));
    EXPECT_THAT(left_behind(), IsEmpty());
}

// The camera sent the signal, so an end by it is what was asked for.
TEST_F(CameraGuest, ThatLetsTheSignalEndItHasDoneWell) {
    const auto camera = start_guest({"sh", "-c", "echo guest up; exec sleep 60"});
    const Ended stopped = camera->terminate();
    EXPECT_EQ(stopped.code, 0);
    EXPECT_EQ(stopped.err, "");
    EXPECT_THAT(left_behind(), IsEmpty());

    const Ended over = play("[[steps]]\nat = 0.2\n", {"sleep", "60"});
    EXPECT_EQ(over.code, 0);
    EXPECT_EQ(over.err, "");
}

TEST_F(CameraGuest, KilledBySomebodyElseHasNotDoneWell) {
    const Ended ended = play("", {"sh", "-c", "kill -TERM $$"});
    EXPECT_EQ(ended.code, 128 + SIGTERM);
}

TEST_F(CameraGuest, ThatEndsBeforeTheScenarioFailsIt) {
    const Ended ended = play("[[steps]]\nat = 60\n", {"true"});
    EXPECT_EQ(ended.code, 1);
    EXPECT_EQ(ended.err, "fenwa-camera: 'true' ended with exit code 0, before the scenario did\n");
    EXPECT_EQ(play("[[steps]]\nat = 60\n", {"sh", "-c", "exit 9"}).code, 9);
}

TEST_F(CameraGuest, DoesNotHideAnExpectationThatFailed) {
    const Ended ended =
        play("[[steps]]\nexpect = {state = \"temperature.main\", is = 0, within = 0.2}\n",
             script("trap 'exit 9' TERM" + forever));
    EXPECT_EQ(ended.code, 1);
    EXPECT_THAT(plain(ended.err), HasSubstr("s.toml:1:1: expected temperature.main to be 0.0"));
}

TEST_F(CameraGuest, MayCallServicesThatAreDown) {
    const Ended ended = play("", script(R"(
camera stop temperature
camera start temperature
camera show | grep -q 'service temperature: up' || exit 3
)"));
    EXPECT_EQ(ended.code, 0) << ended.err;
}

TEST_F(CameraGuest, DoesNotGetTheTerminalsSigint) {
    const auto camera = start_guest(
        {"sh", "-c", "trap 'echo interrupted' INT; echo guest up; while :; do sleep 0.02; done"});
    camera->send_signal(SIGINT);
    const Ended ended = camera->wait();
    EXPECT_EQ(ended.out.find("interrupted"), std::string::npos);
    EXPECT_EQ(ended.code, 0);
}

TEST_F(CameraGuest, IsNotWaitedForAfterASecondSignal) {
    const auto camera = start_guest(
        {"sh", "-c", "trap 'echo asked' TERM; echo guest up; while :; do sleep 0.02; done"});
    const auto begin = steady_clock::now();
    camera->send_signal(SIGTERM);
    ASSERT_TRUE(camera->wait_for_text("asked"));
    camera->send_signal(SIGINT);
    EXPECT_EQ(camera->wait().signal, SIGINT);
    EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(9)) << "before it is killed";
    EXPECT_THAT(left_behind(), IsEmpty());
    EXPECT_FALSE(files_left_behind());
}

TEST_F(CameraGuest, ThatIgnoresSigtermIsKilledAfterTenSecondsWithAllThatItHasStarted) {
    const auto camera = start_guest(
        {"sh", "-c",
         "trap '' TERM; setsid sh -c 'sleep 60 & sleep 60' & echo guest up; exec sleep 60"});
    const auto begin = steady_clock::now();
    const Ended ended = camera->terminate();
    EXPECT_GE(steady_clock::now() - begin, std::chrono::seconds(10));
    EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(19));
    EXPECT_EQ(ended.code, 128 + SIGKILL);
    EXPECT_EQ(ended.err, "fenwa-camera: 'sh' ended with exit code 137\n");
    EXPECT_THAT(left_behind(), IsEmpty());
    EXPECT_FALSE(files_left_behind());
}

TEST_F(CameraGuest, WhatItLeavesRunningEndsWithTheCamera) {
    const Ended ended = play("", {"sh", "-c", "setsid sleep 60 & exit 0"});
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_THAT(between(ended), IsEmpty());
}

TEST_F(CameraGuest, WhatItLeavesRunningIsAskedToEndWhileTheServicesAreStillThere) {
    const auto camera =
        start_guest(script("( trap 'sleep 0.5; camera set temperature.main 50; exit 0' TERM\n"
                           "echo guest up\nwhile :; do sleep 0.02; done ) & wait"));
    const Ended ended = camera->terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_THAT(ended.out, HasSubstr("sensor main is 50.0"));
    EXPECT_LT(ended.out.find("sensor main is 50.0"), ended.out.find("temperature: down"));
    EXPECT_THAT(left_behind(), IsEmpty());
}

TEST_F(CameraGuest, OfAScenarioIsAskedToEndToo) {
    const auto camera = start(command(
        "[[steps]]\nrun = [\"sh\", \"-c\", \"trap 'echo asked; exit 0' TERM; echo guest up; "
        "while :; do sleep 0.02; done\"]\n"));
    ASSERT_TRUE(camera->wait_for_text("guest up")) << camera->err();
    const Ended ended = camera->terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_THAT(ended.out, HasSubstr("asked"));
    EXPECT_THAT(left_behind(), IsEmpty());
}

}  // namespace
}  // namespace test
