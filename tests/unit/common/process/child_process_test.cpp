#include "common/process/child_process.hpp"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <thread>
#include <vector>

namespace common {
namespace {

using Lines = std::vector<std::string>;

constexpr std::chrono::seconds time_limit{20};

class ChildProcessTest : public testing::Test {
  protected:
    ChildEnd run(const std::function<void(const LineSender&)>& work,
                 std::chrono::microseconds limit = time_limit) {
        return run_in_child(work, limit, [this](const std::string& line) {
            lines_.push_back(line);
            return line == "anew";
        });
    }

    Lines lines_;
};

/// Closes both ends of a pipe. @returns whether all other writers have closed theirs within 20 s.
bool closed_by_all(const int (&ends)[2]) {
    close(ends[1]);
    pollfd gone{ends[0], POLLIN, 0};
    char none = 0;
    const bool closed = poll(&gone, 1, 20'000) == 1 && read(ends[0], &none, 1) == 0;
    close(ends[0]);
    return closed;
}

TEST_F(ChildProcessTest, HandsOnEveryLineHoweverLong) {
    const std::string all_letters(1'000'000, 'x');
    const ChildEnd end = run([&](const LineSender& send) {
        send("");
        send(all_letters);
        for (int i = 0; i < 3; ++i)
            send(std::to_string(i));
    });
    EXPECT_EQ(lines_, (Lines{"", all_letters, "0", "1", "2"}));
    EXPECT_FALSE(end.timed_out);
    EXPECT_EQ(end.signal, 0);
    EXPECT_EQ(end.code, 0);
}

TEST_F(ChildProcessTest, KeepsTheLinesOfOneThatCrashes) {
    const ChildEnd end = run([](const LineSender& send) {
        send("last words");
        std::raise(SIGSEGV);
    });
    EXPECT_EQ(lines_, Lines{"last words"});
    EXPECT_EQ(end.signal, SIGSEGV);
}

TEST_F(ChildProcessTest, EndIsKnownThoughTheProcessIgnoresItsChildren) {
    std::signal(SIGCHLD, SIG_IGN);
    const ChildEnd end = run([](const LineSender&) { std::raise(SIGSEGV); });
    EXPECT_FALSE(end.timed_out);
    EXPECT_EQ(end.signal, SIGSEGV);
    EXPECT_EQ(std::signal(SIGCHLD, SIG_DFL), SIG_IGN) << "stays as it was";
}

TEST_F(ChildProcessTest, KeepsTheLinesOfOneThatEndsMeanwhile) {
    const auto slowly = [this](const std::string& line) {
        lines_.push_back(line);
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        return false;
    };
    const auto work = [](const LineSender& send) {
        send("one");
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        send("two");
    };
    EXPECT_EQ(run_in_child(work, time_limit, slowly).code, 0);
    EXPECT_EQ(lines_, (Lines{"one", "two"}));
}

TEST_F(ChildProcessTest, EndsOneThatHangsTogetherWithWhatItHasStarted) {
    int alive[2];
    ASSERT_EQ(pipe(alive), 0);
    const ChildEnd end = run(
        [](const LineSender& send) {
            const pid_t other = fork();
            if (other != 0)
                send("hangs");
            for (;;)
                pause();
        },
        std::chrono::milliseconds(300));
    EXPECT_TRUE(end.timed_out);
    EXPECT_EQ(lines_, Lines{"hangs"});
    EXPECT_TRUE(closed_by_all(alive));
}

TEST_F(ChildProcessTest, EndsWithTheProcessThatHasStartedIt) {
    int alive[2];
    ASSERT_EQ(pipe(alive), 0);
    const pid_t starter = fork();
    if (starter == 0) {
        run([&](const LineSender&) {
            static_cast<void>(!write(alive[1], "x", 1));
            for (;;)
                pause();
        });
        _exit(0);
    }
    char up = 0;
    ASSERT_EQ(read(alive[0], &up, 1), 1);
    kill(starter, SIGKILL);
    waitpid(starter, nullptr, 0);
    EXPECT_TRUE(closed_by_all(alive));
}

TEST_F(ChildProcessTest, TimeBeginsAnewWithALineThatSaysSo) {
    const auto talk = [](const std::string& line) {
        return [line](const LineSender& send) {
            for (int i = 0; i < 8; ++i) {
                std::this_thread::sleep_for(std::chrono::milliseconds(200));
                send(line);
            }
        };
    };
    EXPECT_FALSE(run(talk("anew"), std::chrono::milliseconds(1000)).timed_out);
    EXPECT_TRUE(run(talk("goes on"), std::chrono::milliseconds(1000)).timed_out);
}

TEST_F(ChildProcessTest, HoldsNoSignalBack) {
    sigset_t signals;
    sigset_t before;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, &before);
    EXPECT_EQ(run([](const LineSender&) { raise(SIGTERM); }).signal, SIGTERM);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST_F(ChildProcessTest, WhatIsThrownThereStaysThere) {
    EXPECT_EQ(run([](const LineSender&) { throw 1; }).code, 1);
}

TEST(Misbehaviour, IsSaidWithItsPhase) {
    EXPECT_EQ(misbehaviour({false, SIGSEGV, 0}, "setup", time_limit), "crashed in setup: SIGSEGV");
    EXPECT_EQ(misbehaviour({false, 0, 3}, "setup", time_limit),
              "ended the process in setup with exit code 3");
    EXPECT_EQ(misbehaviour({true, 0, 0}, "setup", std::chrono::milliseconds(1500)),
              "did not come back from setup within 1.5 s");
}

TEST_F(ChildProcessTest, WaitsForTheEndOfOneThatHasClosedItsFiles) {
    const ChildEnd end = run([](const LineSender& send) {
        send("before");
        for (int fd = 3; fd < 256; ++fd)
            close(fd);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        _exit(5);
    });
    EXPECT_EQ(lines_, Lines{"before"});
    EXPECT_EQ(end.code, 5);
}

TEST_F(ChildProcessTest, DoesNotWaitForOthersThatHoldItsFiles) {
    const ChildEnd end = run([](const LineSender& send) {
        if (fork() == 0) {
            for (;;)
                pause();
        }
        send("done");
    });
    EXPECT_FALSE(end.timed_out);
    EXPECT_EQ(lines_, Lines{"done"});
}

}  // namespace
}  // namespace common
