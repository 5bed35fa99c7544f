// However the camera ends, nothing of it stays: no program, no daemon, no folder.
#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>

#include "tests/integration/camera/scenario_scene.hpp"

namespace test {
namespace {

class CameraEnding : public ScenarioScene {
  protected:
    /// A camera with a program that ends at nothing but SIGKILL, and that has started more of its
    /// kind: one in its group, one in a session of its own, whose parent has ended.
    [[nodiscard]] std::unique_ptr<Process> start_stubborn() const {
        auto camera =
            start({"run", "--private-bus=" + socket(), "--", "sh", "-c",
                   "trap '' TERM INT HUP; sleep 60 & setsid sh -c 'sleep 60 & sleep 60 &'; "
                   "echo child up; while :; do sleep 0.02; done"});
        EXPECT_TRUE(camera->wait_for_text("child up")) << camera->err();
        EXPECT_GE(left_behind().size(), 7U);
        return camera;
    }

    [[nodiscard]] std::string socket() const { return (folder().path() / "bus").string(); }

    void expect_nothing_left() const {
        ScenarioScene::expect_nothing_left();
        EXPECT_FALSE(std::filesystem::exists(socket()));
    }

    /// The camera ends by this signal in less than 5 s, and leaves nothing.
    void expect_end_by(int signal, Process& camera) const {
        const auto begin = steady_clock::now();
        EXPECT_EQ(camera.wait().signal, signal) << "as if it were one process";
        EXPECT_LT(steady_clock::now() - begin, seconds(5));
        expect_nothing_left();
    }

    /// The same where the last one to end is nobody's child; waits 20 s at most.
    void expect_nothing_left_soon() const {
        const auto deadline = steady_clock::now() + seconds(20);
        while ((!left_behind().empty() || files_left_behind()) && steady_clock::now() < deadline)
            std::this_thread::sleep_for(milliseconds(20));
        expect_nothing_left();
    }
};

TEST_F(CameraEnding, AtASecondSignalNothingIsLeft) {
    for (const int second : {SIGINT, SIGTERM}) {
        const auto camera = start_stubborn();
        camera->send_signal(SIGINT);
        std::this_thread::sleep_for(milliseconds(100));
        camera->send_signal(second);
        expect_end_by(second, *camera);
    }
}

TEST_F(CameraEnding, AtSigquitNothingIsLeft) {
    const auto camera = start_stubborn();
    camera->send_signal(SIGQUIT);
    expect_end_by(SIGQUIT, *camera);
}

TEST_F(CameraEnding, ASecondSignalEndsItWhileItCannotTakeAny) {
    const auto camera = start_stubborn();
    // As when it waits for something: a stopped process takes no signal either.
    kill(player(*camera), SIGSTOP);
    camera->send_signal(SIGTERM);
    std::this_thread::sleep_for(milliseconds(100));
    camera->send_signal(SIGTERM);
    expect_end_by(SIGTERM, *camera);
}

TEST_F(CameraEnding, WhenItsProcessIsKilledOrCrashesNothingIsLeft) {
    for (const int signal : {SIGKILL, SIGSEGV}) {
        const auto camera = start_stubborn();
        kill(player(*camera), signal);
        expect_end_by(signal, *camera);
    }
}

TEST_F(CameraEnding, WhenTheProcessThatWasStartedIsKilledNothingIsLeft) {
    const auto camera = start_stubborn();
    camera->send_signal(SIGKILL);
    EXPECT_THAT(camera->wait().out, EndsWith("the end, with exit code 137\n"))
        << "it stops in order, and kills what ignores that";
    expect_nothing_left_soon();
}

TEST_F(CameraEnding, WhenItsProcessGroupIsKilledNothingIsLeft) {
    const auto begin = steady_clock::now();
    // `timeout` kills the whole group, of which it is the leader.
    const Ended ended =
        run_program({"timeout", "--signal", "KILL", "1", FENWA_CAMERA_PROGRAM, "run",
                     "--private-bus=" + socket(), "--", "sh", "-c", "setsid sleep 60 & sleep 60"},
                    environment());
    EXPECT_EQ(ended.signal, SIGKILL);
    EXPECT_LT(steady_clock::now() - begin, seconds(10));
    expect_nothing_left_soon();
}

TEST_F(CameraEnding, WhenBothItsProcessesAreKilledProgramAndDaemonEndAndTheNextStartTidiesUp) {
    const auto camera = start(
        {"run", "--private-bus=" + socket(), "--", "sh", "-c", "echo child up; exec sleep 60"});
    ASSERT_TRUE(camera->wait_for_text("child up")) << camera->err();
    const pid_t playing = player(*camera);
    camera->send_signal(SIGSTOP);  // so that it cannot see the other's end
    kill(playing, SIGKILL);
    camera->send_signal(SIGKILL);
    EXPECT_EQ(camera->wait().signal, SIGKILL);
    const auto deadline = steady_clock::now() + seconds(20);
    while (!left_behind().empty() && steady_clock::now() < deadline)
        std::this_thread::sleep_for(milliseconds(20));
    EXPECT_THAT(left_behind(), IsEmpty());
    EXPECT_TRUE(files_left_behind());
    EXPECT_EQ(run({"run", "--private-bus=" + socket(), "--", "true"}).code, 0);
    expect_nothing_left();
}

TEST_F(CameraEnding, AServiceManagerHearsFromTheProcessThatItHasStarted) {
    const std::string path = (folder().path() / "notify").string();
    const common::Descriptor manager(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    path.copy(name.sun_path, sizeof name.sun_path - 1);
    ASSERT_EQ(bind(manager.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
    const int on = 1;
    ASSERT_EQ(setsockopt(manager.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof on), 0);
    const timeval limit{20, 0};
    ASSERT_EQ(setsockopt(manager.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit), 0);

    const auto camera = start({"run", "--private-bus"}, {{"NOTIFY_SOCKET", path}});
    char text[256] = {};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))] = {};
    iovec part{text, sizeof text - 1};
    msghdr message{nullptr, 0, &part, 1, control, sizeof control, 0};
    ASSERT_GT(recvmsg(manager.get(), &message, 0), 0);
    EXPECT_THAT(text, StartsWith("READY=1\nSTATUS=Playing on unix:path="));
    ucred sender{};
    ASSERT_NE(CMSG_FIRSTHDR(&message), nullptr);
    std::memcpy(&sender, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof sender);
    EXPECT_EQ(sender.pid, camera->pid());
    EXPECT_EQ(camera->terminate().code, 0);
}

}  // namespace
}  // namespace test
