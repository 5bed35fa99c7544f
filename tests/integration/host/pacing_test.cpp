#include <algorithm>
#include <chrono>

#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

/// Blocks that fire themselves for ever.
class Pacing : public HostTest {
  protected:
    /// How often a spinner is run in that many seconds.
    int runs_in(double seconds, const std::string& host_table) const {
        const Ended ended = run(probes(host_table + "[blocks.spinner]\ntype = \"Spinner\"\n"),
                                {"--for", std::to_string(seconds)});
        EXPECT_EQ(ended.code, 0);
        EXPECT_EQ(ended.err, "");
        return spinner_runs(messages(ended.out));
    }

    static int spinner_runs(const std::string& said) {
        const std::string known = "spinner: spins\nspinner: ";
        EXPECT_TRUE(said.starts_with(known)) << said;
        return std::stoi(said.substr(known.size()));
    }
};

TEST_F(Pacing, BlockThatFiresItselfForEverRunsABurstAndThen200TimesASecond) {
    const int runs = runs_in(1.5, "");
    EXPECT_GE(runs, 64 + 250);
    // What its last wait was for may come early by the time that the start has taken.
    EXPECT_LE(runs, 64 + 300 + 10);
}

TEST_F(Pacing, OthersGoOnBesideABlockThatHasSpentItsBudget) {
    const Ended ended = run(probes("[blocks.spinner]\ntype = \"Spinner\"\n"
                                   "[blocks.tick]\ntype = \"Timer\"\ninterval = 20\n"),
                            {"--for", "1.5"});
    EXPECT_EQ(ended.code, 0);
    EXPECT_LE(spinner_runs(messages(ended.out)), 64 + 300 + 10);
    const std::string ticks = lines_with(ended.out, "\"output\"");
    // A busy machine may leave some out.
    EXPECT_GE(std::count(ticks.begin(), ticks.end(), '\n'), 50);
}

TEST_F(Pacing, BurstAndRateOfTheFileAreHeeded) {
    const int runs = runs_in(1.0, "[host]\nrun_burst = 5\nrun_rate = 20.5\n");
    EXPECT_GE(runs, 5 + 16);
    EXPECT_LE(runs, 5 + 21 + 2);
}

TEST_F(Pacing, RateBeyondAllClocksLeavesTheBurst) {
    EXPECT_EQ(runs_in(0.3, "[host]\nrun_burst = 7\nrun_rate = 1e-300\n"), 7);
}

TEST_F(Pacing, ZeroSwitchesTheBrakeOff) {
    for (const char* setting : {"run_burst = 0", "run_rate = 0", "run_rate = 0.0"})
        EXPECT_GT(runs_in(0.5, std::string("[host]\n") + setting + "\n"), 2000) << setting;
}

TEST_F(Pacing, LargestNumbersAreTaken) {
    const int runs = runs_in(0.5, "[host]\nrun_burst = 9223372036854775807\nrun_rate = 1.7e308\n");
    EXPECT_GT(runs, 2000);
}

TEST_F(Pacing, StopDoesNotWaitForABlocksTurn) {
    Process host(run_command(probes("[host]\nrun_burst = 1\nrun_rate = 0.001\n"
                                    "[blocks.spinner]\ntype = \"Spinner\"\n"),
                             {"--bus", bus()}));
    EXPECT_TRUE(host.wait_for_text("spinner: spins"));
    const auto begin = std::chrono::steady_clock::now();
    const Ended ended = host.terminate();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(messages(ended.out), "spinner: spins\nspinner: 1 runs\n");
}

TEST_F(Pacing, MistakesInTheTableAreReportedAtTheirPlaces) {
    const Ended ended = check(R"([host]
run_burst = -1
run_rate = -0.5
run_rat = 3

[blocks.t]
type = "Timer"
interval = 5
)");
    EXPECT_EQ(ended.code, 78);
    EXPECT_EQ(ended.err, R"(graph.toml:2:13: error: 'run_burst' of [host] must be 0 or more, not -1
run_burst = -1
            ^
graph.toml:3:12: error: 'run_rate' of [host] must be a finite number of 0 or more
run_rate = -0.5
           ^
graph.toml:4:1: error: unknown key 'run_rat' in [host]
run_rat = 3
^
help: did you mean 'run_rate'?
graph.toml: 3 errors
)");
}

TEST_F(Pacing, ValuesOfAWrongKindAreRefused) {
    const auto errors = [this](const std::string& line) {
        return lines_with(check(line + "\n[blocks.t]\ntype = \"Timer\"\ninterval = 5\n").err,
                          "error: ");
    };
    EXPECT_EQ(errors("host = 5"),
              "graph.toml:1:8: error: 'host' of the graph must be a table, not an integer\n");
    EXPECT_EQ(errors("[host]\nrun_burst = 2.0"),
              "graph.toml:2:13: error: 'run_burst' of [host] must be an integer, not a float\n");
    EXPECT_EQ(errors("[host]\nrun_rate = \"fast\""),
              "graph.toml:2:12: error: 'run_rate' of [host] must be a number, not a string\n");
    for (const char* number : {"inf", "-inf", "nan"})
        EXPECT_EQ(errors(std::string("[host]\nrun_rate = ") + number),
                  "graph.toml:2:12: error: 'run_rate' of [host] must be a finite number of 0 or "
                  "more\n");
}

}  // namespace
}  // namespace test
