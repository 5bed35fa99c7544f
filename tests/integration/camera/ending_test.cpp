// However the camera ends, nothing of it stays: no program, no daemon, no folder.
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>

#include "tests/integration/camera/scenario_scene.hpp"

namespace test {
namespace {

using std::chrono::steady_clock;
using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class CameraEnding : public ScenarioScene {
  protected:
    /// A camera with a program that ends at nothing but SIGKILL, and that has started more of its
    /// kind: one in its group, one in a session of its own, whose parent has ended.
    [[nodiscard]] std::unique_ptr<Process> start_stubborn() const {
        auto camera =
            start({"run", "--private-bus=" + socket(), "--", "sh", "-c",
                   "trap '' TERM INT HUP; sleep 60 & setsid sh -c 'sleep 60 & sleep 60 &'; "
                   "echo guest up; while :; do sleep 0.02; done"});
        EXPECT_TRUE(camera->wait_for_text("guest up")) << camera->err();
        EXPECT_GE(left_behind().size(), 7U);
        return camera;
    }

    [[nodiscard]] std::string socket() const { return (folder().path() / "bus").string(); }

    void expect_nothing_left() const {
        EXPECT_THAT(left_behind(), IsEmpty());
        EXPECT_FALSE(files_left_behind());
        EXPECT_FALSE(std::filesystem::exists(socket()));
    }

    /// The same where the last one to end is nobody's child; waits 20 s at most.
    void expect_nothing_left_soon() const {
        const auto deadline = steady_clock::now() + std::chrono::seconds(20);
        while ((!left_behind().empty() || files_left_behind()) && steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        expect_nothing_left();
    }
};

TEST_F(CameraEnding, AtASecondSignalNothingIsLeft) {
    for (const int second : {SIGINT, SIGTERM}) {
        const auto camera = start_stubborn();
        camera->send_signal(SIGINT);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        const auto begin = steady_clock::now();
        camera->send_signal(second);
        EXPECT_EQ(camera->wait().signal, second);
        EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(5));
        expect_nothing_left();
    }
}

TEST_F(CameraEnding, AtSigquitNothingIsLeft) {
    const auto camera = start_stubborn();
    const auto begin = steady_clock::now();
    camera->send_signal(SIGQUIT);
    EXPECT_EQ(camera->wait().signal, SIGQUIT);
    EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(5));
    expect_nothing_left();
}

TEST_F(CameraEnding, ASecondSignalEndsItWhileItCannotTakeAny) {
    const auto camera = start_stubborn();
    // As when it waits for something: a stopped process takes no signal either.
    kill(player(*camera), SIGSTOP);
    camera->send_signal(SIGTERM);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const auto begin = steady_clock::now();
    camera->send_signal(SIGTERM);
    EXPECT_EQ(camera->wait().signal, SIGTERM);
    EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(5));
    expect_nothing_left();
}

TEST_F(CameraEnding, WhenItsProcessIsKilledOrCrashesNothingIsLeft) {
    for (const int signal : {SIGKILL, SIGSEGV}) {
        const auto camera = start_stubborn();
        kill(player(*camera), signal);
        EXPECT_EQ(camera->wait().signal, signal) << "as if it were one process";
        expect_nothing_left();
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
                    {{"DBUS_SYSTEM_BUS_ADDRESS", unreachable_system_bus}, {"TMPDIR", temporary()}});
    EXPECT_EQ(ended.signal, SIGKILL);
    EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(10));
    expect_nothing_left_soon();
}

TEST_F(CameraEnding, WhenBothItsProcessesAreKilledProgramAndDaemonEndAndTheNextStartTidiesUp) {
    const auto camera = start(
        {"run", "--private-bus=" + socket(), "--", "sh", "-c", "echo guest up; exec sleep 60"});
    ASSERT_TRUE(camera->wait_for_text("guest up")) << camera->err();
    const pid_t playing = player(*camera);
    camera->send_signal(SIGSTOP);  // so that it cannot see the other's end
    kill(playing, SIGKILL);
    camera->send_signal(SIGKILL);
    EXPECT_EQ(camera->wait().signal, SIGKILL);
    const auto deadline = steady_clock::now() + std::chrono::seconds(20);
    while (!left_behind().empty() && steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_THAT(left_behind(), IsEmpty());
    EXPECT_TRUE(files_left_behind());
    EXPECT_EQ(run({"run", "--private-bus=" + socket(), "--", "true"}).code, 0);
    expect_nothing_left();
}

TEST_F(CameraEnding, WithTooFewDescriptorsNothingIsLeft) {
    bool enough = false;
    for (int limit = 4; limit <= 40 && !enough; ++limit) {
        const Ended ended = run_program(
            // Without those that the test's own starter has left open.
            {"sh", "-c",
             R"(exec 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-
                ulimit -n "$1"; exec "$0" run --private-bus="$2" -- true)",
             FENWA_CAMERA_PROGRAM, std::to_string(limit), socket()},
            {{"DBUS_SYSTEM_BUS_ADDRESS", unreachable_system_bus}, {"TMPDIR", temporary()}});
        EXPECT_EQ(ended.signal, 0) << limit;
        enough = ended.code == 0;
        if (!enough) {
            EXPECT_THAT(ended.code, AnyOf(66, 69, 70)) << limit;
            EXPECT_THAT(ended.err, StartsWith("fenwa-camera: ")) << limit;
        }
        expect_nothing_left();
    }
    EXPECT_TRUE(enough);
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
