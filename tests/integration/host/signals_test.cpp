#include <csignal>
#include <thread>

#include "tests/integration/host/bus_listener.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

using Clock = std::chrono::steady_clock;

/// Those that come within a shorter time count as one.
constexpr std::chrono::milliseconds one_request{100};

class Signals : public HostTest, public testing::WithParamInterface<int> {};

TEST_P(Signals, EndTheRunWithExitCode0) {
    Process host(run_command(probes("[blocks.p]\ntype = \"Probe\"\n"), {"--bus", bus()}));
    ASSERT_TRUE(host.wait_for_text("p: run"));
    host.send_signal(GetParam());
    const Ended ended = host.wait();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_TRUE(messages(ended.out).ends_with("p: run\np: stop\np: destructor\n"));
    EXPECT_TRUE(
        without_times(ended.out).ends_with("{\"event\":\"exit\",\"time\":0,\"status\":0}\n"));
}

TEST_P(Signals, LetWhatBlocksSendWhenTheyStopReachItsReceiver) {
    BusListener listener(bus());
    listener.listen_for_farewells();
    Process host(run_command(probes("[blocks.one]\ntype = \"Leaver\"\n[blocks.two]\n"
                                    "type = \"Leaver\"\n"),
                             {"--bus", bus()}));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    host.send_signal(GetParam());
    EXPECT_EQ(host.wait().code, 0);
    EXPECT_EQ(
        listener.farewells(4),
        (std::vector<std::string>{"two stop", "one stop", "two destructor", "one destructor"}));
}

TEST_P(Signals, EndASlowStartBetweenTwoBlocks) {
    Process host(run_command(probes("[blocks.one]\ntype = \"Probe\"\n[blocks.two]\n"
                                    "type = \"Probe\"\nstart_ms = 700\n[blocks.three]\n"
                                    "type = \"Probe\"\n"),
                             {"--bus", bus()}));
    ASSERT_TRUE(host.wait_for_text("two: takes its time"));
    host.send_signal(GetParam());
    const Ended ended = host.wait();
    EXPECT_EQ(ended.signal, 0);
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(messages(ended.out),
              "one: constructor\ntwo: constructor\nthree: constructor\n"
              "one: setup\ntwo: setup\nthree: setup\none: start\ntwo: takes its time\ntwo: start\n"
              "two: stop\none: stop\nthree: destructor\ntwo: destructor\none: destructor\n");
    EXPECT_EQ(lines_with(ended.out, "\"ready\""), "");
    EXPECT_TRUE(
        without_times(ended.out).ends_with("{\"event\":\"exit\",\"time\":0,\"status\":0}\n"));
}

TEST_P(Signals, FirstOneIsEnoughForAStopThatTakesItsTime) {
    BusListener listener(bus());
    listener.listen_for_farewells();
    Process host(
        run_command(probes("[blocks.one]\ntype = \"Leaver\"\nstop_ms = 300\n"), {"--bus", bus()}));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    host.send_signal(GetParam());
    EXPECT_EQ(host.wait().code, 0);
    EXPECT_EQ(listener.farewells(2), (std::vector<std::string>{"one stop", "one destructor"}));
}

TEST_P(Signals, FurtherOneDuringAStopEndsTheProcessAtOnce) {
    for (const int further : {SIGINT, SIGTERM}) {
        Process host(run_command(probes("[blocks.one]\ntype = \"Leaver\"\nstop_ms = 15000\n"),
                                 {"--bus", bus()}));
        ASSERT_TRUE(host.wait_for_text("\"ready\""));
        host.send_signal(GetParam());
        ASSERT_TRUE(host.wait_for_text("one: stop"));
        std::this_thread::sleep_for(one_request);
        const auto begin = Clock::now();
        host.send_signal(further);
        EXPECT_EQ(host.wait().signal, further);
        EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
    }
}

INSTANTIATE_TEST_SUITE_P(Both, Signals, testing::Values(SIGINT, SIGTERM), [](const auto& each) {
    return each.param == SIGINT ? "Interrupt" : "Terminate";
});

TEST_F(Signals, AreServedThoughTheStarterIgnoredInterrupts) {
    // As shells do for what they start in the background.
    Words words{"sh", "-c", "trap '' INT; exec \"$@\"", "sh"};
    const Words run =
        run_command(probes("[blocks.one]\ntype = \"Leaver\"\nstop_ms = 15000\n"), {"--bus", bus()});
    words.insert(words.end(), run.begin(), run.end());
    Process host(words);
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    host.send_signal(SIGINT);
    ASSERT_TRUE(host.wait_for_text("one: stop"));
    std::this_thread::sleep_for(one_request);
    host.send_signal(SIGINT);
    EXPECT_EQ(host.wait().signal, SIGINT);
}

}  // namespace
}  // namespace test
