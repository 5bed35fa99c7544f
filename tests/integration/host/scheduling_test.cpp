#include <chrono>
#include <sstream>

#include "tests/integration/host/bus_listener.hpp"
#include "tests/integration/host/host_test.hpp"
#include "tests/support/json_printing.hpp"

namespace test {
namespace {

class Scheduling : public HostTest {
  protected:
    std::string messages_of(const std::string& graph) const {
        const Ended ended = run(graph, {"--for", "0.2"});
        expect_end(ended);
        return messages(ended.out);
    }
};

TEST_F(Scheduling, SeveralFiresBeforeARunMakeOneRunAndOneDuringARunAnother) {
    EXPECT_EQ(messages_of(block("s", "Source", "runs = 1, fires = 5")), "s: run\n");
    EXPECT_EQ(messages_of(block("s", "Source", "runs = 3, fires = 5")), "s: run\ns: run\ns: run\n");
}

TEST_F(Scheduling, MarksTellWhichEventARunIsFor) {
    EXPECT_EQ(messages_of(block("e", "Events")),
              "e: run first\ne: run second\ne: not dealt with\ne: dealt with\n");
}

TEST_F(Scheduling, ReadyBlocksRunOnceEachPerPassInTheOrderInWhichTheyBecameReady) {
    EXPECT_EQ(messages_of(block("c", "Source", "runs = 3") + block("a", "Source", "runs = 3") +
                          block("b", "Source", "runs = 3")),
              "c: run\na: run\nb: run\nc: run\na: run\nb: run\nc: run\na: run\nb: run\n");
}

TEST_F(Scheduling, BlockThatFiresItselfForEverWithoutABrakeStarvesNobody) {
    start(R"(host.run_rate = 0
             bus.names = ["com.example.Spinning"]
             blocks.spinner = {type = "Spinner"}
             blocks.tick = {type = "Timer", interval = 20}
             blocks.echo = {type = "Exporter", path = "/com/example/Echo"}
             blocks.sink = {type = "Sink", only = "tick"}
             connections = [{from = "tick.out", to = "sink.tick"}])",
          {}, "spinner: spins");
    EXPECT_TRUE(host().wait_for_text("sink: run tick!=5"));
    BusListener client(bus());
    EXPECT_EQ(client.echo("com.example.Spinning", "/com/example/Echo", "you"), "echo heard you");
    const auto begin = std::chrono::steady_clock::now();
    stop();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
}

TEST_F(Scheduling, FiresFromFourThreadsAreAllServed) {
    start("host.run_rate = 0\n" + block("t", "Threaded", "times = 2000"), {},
          "t: 8000 fires served");
    EXPECT_EQ(messages(stop()), "t: 8000 fires served\n");
}

TEST_F(Scheduling, StopEndsABlocksThreads) {
    start(block("t", "Threaded", "times = 100000000"));
}

/// Blocks that fire themselves for ever.
class Pacing : public HostTest {
  protected:
    /// How often a spinner is run in that many seconds, with this line for the host.
    int runs_in(double seconds, const std::string& host_line) const {
        const Ended ended = run(host_line + "\n" + spinner, {"--for", std::to_string(seconds)});
        expect_end(ended);
        return spinner_runs(messages(ended.out));
    }

    static int spinner_runs(const std::string& said) {
        const std::string known = "spinner: spins\nspinner: ";
        EXPECT_TRUE(said.starts_with(known)) << said;
        return std::stoi(said.substr(known.size()));
    }

    const std::string spinner = block("spinner", "Spinner");
};

TEST_F(Pacing, BlockThatFiresItselfForEverRunsABurstAndThen200TimesASecondBesideOthers) {
    const Ended ended = run(spinner + block("tick", "Timer", "interval = 20"), {"--for", "1.5"});
    expect_end(ended);
    const int runs = spinner_runs(messages(ended.out));
    EXPECT_GE(runs, 64 + 250);
    // The last run may come early, by the time that the start has taken.
    EXPECT_LE(runs, 64 + 300 + 10);
    // A busy machine may leave some out.
    EXPECT_GE(count_lines(ended.out, "\"output\""), 50);
}

TEST_F(Pacing, BurstAndRateOfTheFileAreHeeded) {
    const int runs = runs_in(1.0, "host = {run_burst = 5, run_rate = 20.5}");
    EXPECT_GE(runs, 5 + 16);
    EXPECT_LE(runs, 5 + 21 + 2);
    // A rate beyond all clocks leaves the burst.
    EXPECT_EQ(runs_in(0.3, "host = {run_burst = 7, run_rate = 1e-300}"), 7);
}

TEST_F(Pacing, ZeroOrTheLargestNumbersSwitchTheBrakeOff) {
    for (const char* line : {"host.run_burst = 0", "host.run_rate = 0", "host.run_rate = 0.0",
                             "host = {run_burst = 9223372036854775807, run_rate = 1.7e308}"})
        EXPECT_GT(runs_in(0.5, line), 2000) << line;
}

TEST_F(Pacing, StopDoesNotWaitForABlocksTurn) {
    start("host = {run_burst = 1, run_rate = 0.001}\n" + spinner, {}, "spinner: spins");
    const auto begin = std::chrono::steady_clock::now();
    const std::string out = stop();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
    EXPECT_EQ(messages(out), "spinner: spins\nspinner: 1 runs\n");
}

class Timer : public HostTest {};

TEST_F(Timer, EachHasItsOwnPeriodWithConsecutiveTicks) {
    const Ended ended =
        run(block("fast", "Timer", "interval = 20") + block("slow", "Timer", "interval = 200") +
                block("never", "Timer", "interval = 2147483647"),
            {"--for", "1.1"});
    expect_end(ended);
    std::istringstream lines(lines_with(ended.out, "\"fast\""));
    std::vector<double> times;
    for (std::string line; std::getline(lines, line);) {
        const auto event = common::parse_json(line, "the text");
        times.push_back(event.at("time").get<double>());
        EXPECT_EQ(event.at("value").at("ticks"), times.size());
        EXPECT_EQ(event.at("value").at("period_ms"), 20);
    }
    ASSERT_GT(times.size(), 10U);
    EXPECT_NEAR((times.back() - times.front()) / static_cast<double>(times.size() - 1), 0.020,
                0.004);
    EXPECT_NEAR(static_cast<double>(count_lines(ended.out, "\"slow\"")), 5.0, 1.0);
    EXPECT_EQ(count_lines(ended.out, "\"never\""), 0);
}

}  // namespace
}  // namespace test
