#include <fcntl.h>

#include <csignal>
#include <cstdlib>
#include <thread>

#include "common/process/descriptor.hpp"
#include "tests/integration/host/bus_listener.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

using Clock = std::chrono::steady_clock;

/// Signals that come within a shorter time count as one.
constexpr std::chrono::milliseconds one_request{100};

class Signals : public HostTest, public testing::WithParamInterface<int> {
  protected:
    const std::string slow_to_stop = block("one", "Leaver", "stop_ms = 15000");
};

TEST_P(Signals, EndTheRunWithExitCode0) {
    start(block("p", "Probe"), {}, "p: run");
    host().send_signal(GetParam());
    const Ended ended = host().wait();
    expect_end(ended);
    EXPECT_TRUE(messages(ended.out).ends_with("p: run\np: stop\np: destructor\n"));
    EXPECT_TRUE(without_times(ended.out).ends_with(exit_line(0)));
}

TEST_P(Signals, EndASlowStartBetweenTwoBlocks) {
    start(block("one", "Probe") + block("two", "Probe", "start_ms = 700") + block("three", "Probe"),
          {}, "two: takes its time");
    host().send_signal(GetParam());
    const Ended ended = host().wait();
    EXPECT_EQ(ended.signal, 0);
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(messages(ended.out),
              "one: constructor\ntwo: constructor\nthree: constructor\n"
              "one: setup\ntwo: setup\nthree: setup\none: start\ntwo: takes its time\ntwo: start\n"
              "two: stop\none: stop\nthree: destructor\ntwo: destructor\none: destructor\n");
    EXPECT_EQ(lines_with(ended.out, "\"ready\""), "");
    EXPECT_TRUE(without_times(ended.out).ends_with(exit_line(0)));
}

TEST_P(Signals, FurtherOneDuringAStopEndsTheProcessAtOnce) {
    for (const int further : {SIGINT, SIGTERM}) {
        start(slow_to_stop);
        host().send_signal(GetParam());
        ASSERT_TRUE(host().wait_for_text("one: stop"));
        std::this_thread::sleep_for(one_request);
        const auto begin = Clock::now();
        host().send_signal(further);
        EXPECT_EQ(host().wait().signal, further);
        EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
    }
}

INSTANTIATE_TEST_SUITE_P(Both, Signals, testing::Values(SIGINT, SIGTERM), [](const auto& each) {
    return each.param == SIGINT ? "Interrupt" : "Terminate";
});

TEST_F(Signals, AreServedThoughTheStarterIgnoredInterrupts) {
    // As shells do for what they start in the background.
    RunningHost ignoring(Words{"sh", "-c", "trap '' INT; exec \"$@\"", "sh"} +
                         run_command(slow_to_stop));
    ignoring.send_signal(SIGINT);
    ASSERT_TRUE(ignoring.wait_for_text("one: stop"));
    std::this_thread::sleep_for(one_request);
    ignoring.send_signal(SIGINT);
    EXPECT_EQ(ignoring.wait().signal, SIGINT);
}

/// A host in a terminal that a test closes.
class HostInTerminal : public HostTest, public testing::WithParamInterface<std::string> {
  protected:
    /// The first process of a session whose terminal is stdin and stdout of all its processes.
    /// @param script for a shell, in which "$@" is the host.
    Words in_session(const std::string& script) const {
        EXPECT_EQ(grantpt(terminal_.get()), 0);
        EXPECT_EQ(unlockpt(terminal_.get()), 0);
        return Words{"sh",
                     "-c",
                     R"(exec <>"$0" >&0; exec setsid --ctty "$@")",
                     ptsname(terminal_.get()),
                     "sh",
                     "-c",
                     script,
                     "sh"} +
               run_command(block("one", "Leaver"), {"--format", "text"});
    }

    common::Descriptor terminal_{posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)};
};

TEST_P(HostInTerminal, IsStoppedInOrderWhenTheTerminalIsClosed) {
    BusListener listener(bus());
    listener.listen_for_farewells();
    Process session(in_session(GetParam()));
    ASSERT_TRUE(session.wait_for_error_text("fenwa: ready"));
    terminal_.close();
    EXPECT_TRUE(session.wait_for_error_text("fenwa: stopped"));
    EXPECT_EQ(listener.farewells(2), (Words{"one stop", "one destructor"}));
}

INSTANTIATE_TEST_SUITE_P(
    WhoseSession, HostInTerminal,
    testing::Values(
        // The host's own, that of a shell that dies of it, and of one that passes it on.
        R"(exec "$@")", R"("$@"; exit)",
        R"(trap 'kill -HUP $host' HUP; "$@" & host=$!; wait; wait)"));

TEST_F(HostInTerminal, ReloadsOnAHangUpThatIsSomebodysOwn) {
    Process host(in_session(R"(exec "$@")"));
    ASSERT_TRUE(host.wait_for_error_text("fenwa: ready"));
    host.send_signal(SIGHUP);
    EXPECT_TRUE(host.wait_for_error_text("reloaded; no settings have changed"));
    EXPECT_EQ(host.terminate().code, 0);
}

TEST_F(HostInTerminal, ThatIsStartedWithNohupGoesOn) {
    Process host(in_session(R"(trap '' HUP; exec "$@")"));
    ASSERT_TRUE(host.wait_for_error_text("fenwa: ready"));
    terminal_.close();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_EQ(host.err().find("reloaded"), std::string::npos);
    host.send_signal(SIGHUP);
    EXPECT_TRUE(host.wait_for_error_text("reloaded; no settings have changed"));
    EXPECT_EQ(host.terminate().code, 0);
}

}  // namespace
}  // namespace test
