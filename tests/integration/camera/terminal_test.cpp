// The camera in a terminal.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <thread>

#include "common/process/descriptor.hpp"
#include "tests/integration/camera/camera_scene.hpp"
#include "tests/support/proc.hpp"

namespace test {
namespace {

class CameraTerminal : public CameraScene {
  protected:
    /// Starts a shell script, in which "$0" is the camera's program, as the leader of the
    /// terminal's session.
    void run_in_terminal(const std::string& script) {
        terminal_ = common::Descriptor(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
        ASSERT_EQ(grantpt(terminal_.get()), 0);
        ASSERT_EQ(unlockpt(terminal_.get()), 0);
        screen_.clear();
        leader_ = std::make_unique<Process>(
            Lines{"sh", "-c", R"(exec <>"$0" >&0 2>&0; exec setsid --ctty "$@")",
                  ptsname(terminal_.get()), "sh", "-c", script, FENWA_CAMERA_PROGRAM},
            environment());
    }

    /// The text comes on the screen, in time.
    void expect_on_screen(const std::string& text) {
        const auto deadline = steady_clock::now() + Process::wait_limit;
        while (screen_.find(text) == std::string::npos) {
            pollfd ready{terminal_.get(), POLLIN, 0};
            char some[4096];
            ssize_t got = 0;
            ASSERT_LT(steady_clock::now(), deadline) << screen_;
            ASSERT_GE(poll(&ready, 1, 1000), 0);
            if (ready.revents != 0) {
                got = read(terminal_.get(), some, sizeof some);
                ASSERT_GT(got, 0) << screen_;
            }
            screen_.append(some, static_cast<std::size_t>(got));
        }
    }

    /// The process is stopped, or goes on, in time: it takes the signal when it next runs.
    static void expect_stopped(pid_t process, bool stopped) {
        const auto deadline = steady_clock::now() + Process::wait_limit;
        while ((state_of(process).state == 'T') != stopped && steady_clock::now() < deadline)
            std::this_thread::sleep_for(milliseconds(5));
        ASSERT_EQ(state_of(process).state == 'T', stopped);
    }

    void type(char key) const { ASSERT_EQ(write(terminal_.get(), &key, 1), 1); }
    void hang_up() { terminal_.close(); }

    void expect_well_ended() {
        EXPECT_EQ(leader_->wait().code, 0);
        expect_nothing_left();
    }
    [[nodiscard]] const Process& leader() const { return *leader_; }

  private:
    common::Descriptor terminal_{-1};
    std::unique_ptr<Process> leader_;
    std::string screen_;
};

const std::string camera_command =
    "exec \"$0\" run --private-bus -- sh -c 'echo child up; exec sleep 60'";

TEST_F(CameraTerminal, EndsItInOrderWhenItIsClosed) {
    // A camera that ignores SIGHUP must not play on for a screen that is gone.
    for (const std::string trap : {"", "trap '' HUP; "}) {
        run_in_terminal(trap + camera_command);
        expect_on_screen("child up");
        hang_up();
        expect_well_ended();
    }
}

// The camera and its programs are in the background of the terminal, which they may not write to.
TEST_F(CameraTerminal, EndsItInOrderAtCtrlC) {
    for (const std::string setting : {"", "stty tostop; "}) {
        run_in_terminal(setting + camera_command);
        expect_on_screen("child up");
        type('\x03');
        expect_on_screen("the end, with exit code 0");
        expect_well_ended();
    }
}

TEST_F(CameraTerminal, StopsItAtCtrlZUntilItGoesOn) {
    run_in_terminal(
        "set -m; \"$0\" run --private-bus; echo is stopped; read line; fg; echo is over");
    expect_on_screen("ready on");
    const std::vector<pid_t> jobs = children_of(leader().pid());
    ASSERT_EQ(jobs.size(), 1U);
    const std::vector<pid_t> cameras = children_of(jobs[0]);
    ASSERT_EQ(cameras.size(), 1U);
    type('\x1a');
    expect_on_screen("is stopped");
    expect_stopped(cameras[0], true);
    type('\n');
    expect_stopped(cameras[0], false);
    type('\x03');
    expect_on_screen("the end, with exit code 0");
    expect_well_ended();
}

}  // namespace
}  // namespace test
