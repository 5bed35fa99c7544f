// The camera in a terminal.
#include <gmock/gmock.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <thread>

#include "tests/integration/camera/camera_scene.hpp"
#include "tests/support/proc.hpp"

namespace test {
namespace {

using std::chrono::steady_clock;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr std::chrono::seconds patience{20};

/// A terminal with a program in it, which leads its session.
class Terminal {
  public:
    Terminal(const std::vector<std::string>& arguments, const std::string& temporary,
             bool ignores_hangup) {
        pid_ = forkpty(&master_, nullptr, nullptr, nullptr);
        if (pid_ != 0)
            return;
        setenv("TMPDIR", temporary.c_str(), 1);
        setenv("DBUS_SYSTEM_BUS_ADDRESS", unreachable_system_bus, 1);
        if (ignores_hangup)
            std::signal(SIGHUP, SIG_IGN);
        become_program(arguments);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    ~Terminal() {
        hang_up();
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }

    [[nodiscard]] pid_t pid() const { return pid_; }
    [[nodiscard]] const std::string& screen() const { return screen_; }

    /// Whether the text comes on the screen, in time.
    bool shows(const std::string& text) {
        const auto deadline = steady_clock::now() + patience;
        while (screen_.find(text) == std::string::npos) {
            pollfd ready{master_, POLLIN, 0};
            char some[4096];
            ssize_t got = 0;
            if (steady_clock::now() > deadline || poll(&ready, 1, 1000) < 0 ||
                (ready.revents != 0 && (got = read(master_, some, sizeof some)) <= 0))
                return false;
            screen_.append(some, static_cast<std::size_t>(got));
        }
        return true;
    }

    void type(char key) const { ASSERT_EQ(write(master_, &key, 1), 1); }

    void hang_up() {
        if (master_ >= 0)
            close(master_);
        master_ = -1;
    }

    /// The exit code of the program, -1 when it does not end in time or is killed by a signal.
    int wait() {
        const auto deadline = steady_clock::now() + patience;
        int status = 0;
        while (waitpid(pid_, &status, WNOHANG) == 0) {
            if (steady_clock::now() > deadline)
                return -1;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

  private:
    int master_ = -1;
    pid_t pid_ = -1;
    std::string screen_;
};

class CameraTerminal : public CameraScene {
  protected:
    [[nodiscard]] std::unique_ptr<Terminal> terminal(const std::vector<std::string>& arguments,
                                                     bool ignores_hangup = false) const {
        return std::make_unique<Terminal>(arguments, temporary(), ignores_hangup);
    }
    void expect_nothing_left() const {
        EXPECT_THAT(left_behind(), IsEmpty());
        EXPECT_FALSE(files_left_behind());
    }
};

const std::vector<std::string> camera_command = {
    FENWA_CAMERA_PROGRAM, "run", "--private-bus", "--", "sh", "-c", "echo guest up; exec sleep 60"};

TEST_F(CameraTerminal, EndsItInOrderWhenItIsClosed) {
    // Whoever ignores SIGHUP is not to play on for a screen that is gone, told or not.
    for (const bool ignores_hangup : {false, true}) {
        const auto screen = terminal(camera_command, ignores_hangup);
        ASSERT_TRUE(screen->shows("guest up")) << screen->screen();
        screen->hang_up();
        EXPECT_EQ(screen->wait(), 0) << ignores_hangup;
        expect_nothing_left();
    }
}

TEST_F(CameraTerminal, EndsItInOrderAtCtrlC) {
    const auto screen = terminal(camera_command);
    ASSERT_TRUE(screen->shows("guest up")) << screen->screen();
    screen->type('\x03');
    EXPECT_TRUE(screen->shows("the end, with exit code 0")) << screen->screen();
    EXPECT_EQ(screen->wait(), 0);
    expect_nothing_left();
}

TEST_F(CameraTerminal, StopsItAtCtrlZUntilItGoesOn) {
    const auto screen = terminal({"sh", "-c",
                                  "set -m; \"$0\" run --private-bus; echo is stopped; read line; "
                                  "fg; echo is over",
                                  FENWA_CAMERA_PROGRAM});
    ASSERT_TRUE(screen->shows("ready on")) << screen->screen();
    const std::vector<pid_t> jobs = children_of(screen->pid());
    ASSERT_EQ(jobs.size(), 1U);
    const std::vector<pid_t> cameras = children_of(jobs[0]);
    ASSERT_EQ(cameras.size(), 1U);
    screen->type('\x1a');
    ASSERT_TRUE(screen->shows("is stopped")) << screen->screen();
    EXPECT_EQ(state_of(cameras[0]).state, 'T');
    screen->type('\n');
    const auto deadline = steady_clock::now() + patience;
    while (state_of(cameras[0]).state == 'T' && steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(state_of(cameras[0]).state, 'S');
    screen->type('\x03');
    EXPECT_TRUE(screen->shows("the end, with exit code 0")) << screen->screen();
    (void)screen->wait();
    expect_nothing_left();
}

// The camera and its programs are in the background of the terminal.
TEST_F(CameraTerminal, IsWrittenToWhereTheBackgroundMayNot) {
    const auto screen =
        terminal({"sh", "-c",
                  "stty tostop; exec \"$0\" run --private-bus -- sh -c 'echo guest up; sleep 60'",
                  FENWA_CAMERA_PROGRAM});
    EXPECT_TRUE(screen->shows("guest up")) << screen->screen();
    screen->type('\x03');
    EXPECT_TRUE(screen->shows("the end, with exit code 0")) << screen->screen();
    EXPECT_EQ(screen->wait(), 0);
    expect_nothing_left();
}

}  // namespace
}  // namespace test
