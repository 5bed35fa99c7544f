#include <csignal>
#include <ctime>

#include "tests/integration/host/datagram_socket.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

std::string settled(const std::string& name, const std::string& settings = {}) {
    return block(name, "Settled", settings);
}

const std::string told_a = "fenwa: graph.toml: reloaded; new settings for 'a'\n";
const std::string told_nobody = "fenwa: graph.toml: reloaded; no settings have changed\n";

class Reload : public HostTest {
  protected:
    /// Stops the host once this is logged. @returns what its blocks have logged.
    std::string log_until(const std::string& text) {
        EXPECT_TRUE(host().wait_for_text(text));
        const Ended ended = host().terminate();
        EXPECT_EQ(ended.code, 0);
        return messages(ended.out);
    }
};

/// A block's settings before and after a reload, and what it logs of it until it runs.
struct Change : Case {
    std::string before;
    std::string after;
    std::string log;
};

class ReloadChange : public Reload, public testing::WithParamInterface<Change> {};

TEST_P(ReloadChange, IsToldTwiceBeforeTheNextRun) {
    start(settled("a", GetParam().before));
    EXPECT_EQ(reload(settled("a", GetParam().after)), told_a);
    EXPECT_EQ(log_until("a: run"), GetParam().log + "a: run\n");
}

INSTANTIATE_TEST_SUITE_P(
    Of, ReloadChange,
    testing::Values(Change{{"AKey"},
                           "level = 2",
                           "level = 3",
                           "a: 2 none 7 -> 3 none 7\na: 3 none 7 -> 3 none 7\n"},
                    // It has its default again.
                    Change{{"AKeyThatIsTakenAway"},
                           R"(level = 2, note = "x", hidden = 8)",
                           "level = 2",
                           "a: 2 x 8 -> 2 none 7\na: 2 none 7 -> 2 none 7\n"},
                    // The line of the block that is tried out is not logged.
                    Change{{"ABlockThatSpeaksWhenItIsBuilt"},
                           "speaks = true",
                           "speaks = true, level = 3",
                           "a: built\na: 1 none 7 -> 3 none 7\na: 3 none 7 -> 3 none 7\n"}),
    name_of<Change>);

TEST_F(Reload, TellsOnlyTheBlocksWhoseSettingsHaveChanged) {
    start(settled("a", "level = 2") + settled("b", "level = 3") + settled("c", "level = 4"));
    EXPECT_EQ(reload(settled("a", "level = 2, note = \"new\"") + settled("b", "level = 3") +
                     settled("c", "level = 5.5")),
              "fenwa: graph.toml: reloaded; new settings for 'a', 'c'\n");
    EXPECT_EQ(log_until("c: run"),
              "a: 2 none 7 -> 2 new 7\na: 2 new 7 -> 2 new 7\n"
              "c: 4 none 7 -> 5.5 none 7\nc: 5.5 none 7 -> 5.5 none 7\na: run\nc: run\n");
}

TEST_F(Reload, StartsFromTheSettingsOfTheLastOne) {
    start(settled("a", "level = 2"));
    EXPECT_EQ(reload(settled("a", "level = 3")), told_a);
    EXPECT_EQ(reload(settled("a", "level = 4")), told_a);
    EXPECT_EQ(lines_with(log_until("a: run"), "->"),
              "a: 2 none 7 -> 3 none 7\na: 3 none 7 -> 3 none 7\n"
              "a: 3 none 7 -> 4 none 7\na: 4 none 7 -> 4 none 7\n");
}

TEST_F(Reload, OfAFileWithTheSameSettingsTellsNobody) {
    start(settled("a", "level = nan, note = \"x\"") + settled("b", "level = 1"));
    EXPECT_EQ(reload(), told_nobody);
    // In another order, on other lines, written otherwise.
    EXPECT_EQ(reload("# moved\n" + settled("b", "level = 1") +
                     "[blocks.a]\ntype = 'Settled'\nnote = 'x'\nlevel = nan\n"),
              told_nobody);
    EXPECT_EQ(messages(host().terminate().out), "");
}

TEST_F(Reload, DeliversWhatABlockPublishesWhenItIsTold) {
    const std::string sink =
        block("s", "Sink") + R"(connections = [{from = "a.level", to = "s.double"}])";
    start(settled("a", "level = 2") + sink);
    EXPECT_EQ(reload(settled("a", "level = 3") + sink), told_a);
    ASSERT_TRUE(host().wait_for_text("s: run"));
    const Ended ended = host().terminate();
    EXPECT_EQ(without_times(lines_with(ended.out, "output")),
              output_line("a", "level", "double", "3.0"));
    EXPECT_EQ(lines_with(messages(ended.out), "s: run"),
              "s: run double!=3 other=0 quiet=0 float=0 int=0 bool=false tick=0 point=0\n");
}

TEST_F(Reload, GivesATimerItsNewInterval) {
    start(block("t", "Timer", "interval = 1000000"));
    EXPECT_EQ(reload(block("t", "Timer", "interval = 5")),
              "fenwa: graph.toml: reloaded; new settings for 't'\n");
    EXPECT_TRUE(host().wait_for_text(R"({"ticks":2,"period_ms":5})"));
}

TEST_F(Reload, ThatIsAskedForDuringTheStopChangesNothing) {
    const std::string leaver = block("l", "Leaver", "stop_ms = 400");
    start(leaver + settled("a"));
    write_graph(leaver + settled("a", "level = 2"));
    host().send_signal(SIGTERM);
    ASSERT_TRUE(host().wait_for_text("l: stop"));
    host().send_signal(SIGHUP);
    expect_end(host().wait());
}

TEST_F(Reload, ThatWasAskedForDuringTheStartIsDoneAfterIt) {
    const std::string slow = block("p", "Probe", "start_ms = 500");
    start(slow + settled("a", "level = 2"), {}, "p: takes its time");
    EXPECT_EQ(reload(slow + settled("a", "level = 3")), told_a);
    const Ended ended = host().terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_LT(ended.out.find("\"ready\""), ended.out.find("a: 2 none 7 -> 3 none 7"));
}

TEST_F(Reload, WarnsOfAKeyThatTheBlockDoesNotRead) {
    start(settled("a", "level = 2"));
    const std::string line = settled("a", "level = 3, noet = \"x\"");
    EXPECT_EQ(reload(line), "graph.toml:2:42: warning: Settled does not read the key 'noet'\n" +
                                line + std::string(41, ' ') +
                                "^\nhelp: did you mean 'note'?\ngraph.toml: 1 warning\n" + told_a);
    EXPECT_EQ(lines_with(log_until("a: run"), "a: 3"), "a: 3 none 7 -> 3 none 7\n");
}

TEST_F(Reload, ChangesThePaceOfTheBlocks) {
    const std::string spinner = block("s", "Spinner") + settled("a");
    start("host = {run_burst = 1, run_rate = 0.001}\n" + spinner, {}, "s: spins");
    const std::string changed = block("s", "Spinner") + settled("a", "level = 2");
    EXPECT_EQ(reload("host.run_rate = 0\n" + changed),
              "fenwa: graph.toml: reloaded; new settings for [host], 'a'\n");
    ASSERT_TRUE(host().wait_for_text("a: run"));
    EXPECT_EQ(reload("host.run_rate = 0.5\n" + changed),
              "fenwa: graph.toml: reloaded; new settings for [host]\n");
    const std::string log = messages(host().terminate().out);
    EXPECT_GT(std::stoi(log.substr(log.find("s: ", log.find("a: run")) + 3)), 10) << log;
}

TEST_F(Reload, OfManyBlocksNamesTheFirstOnes) {
    std::string before;
    std::string after;
    for (int i = 0; i < 10; ++i) {
        before += settled("b" + std::to_string(i), "level = 2");
        after += settled("b" + std::to_string(i), "level = 3");
    }
    start(before);
    EXPECT_EQ(reload(after),
              "fenwa: graph.toml: reloaded; new settings for 'b0', 'b1', 'b2', 'b3', 'b4', 'b5', "
              "'b6', 'b7' and 2 more\n");
}

TEST_F(Reload, IsToldToTheServiceManager) {
    const DatagramSocket socket(path("notify"));
    start(settled("a", "level = 2"), {}, "\"ready\"", {{"NOTIFY_SOCKET", path("notify")}});
    ASSERT_EQ(socket.receive(), "READY=1");
    host().send_signal(SIGHUP);
    const std::string told = socket.receive();
    EXPECT_TRUE(told.starts_with("RELOADING=1\nMONOTONIC_USEC=")) << told;
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    EXPECT_NEAR(static_cast<double>(now.tv_sec), std::stod(told.substr(told.rfind('=') + 1)) / 1e6,
                20.0);
    EXPECT_EQ(socket.receive(), "READY=1");
}

TEST_F(Reload, ReachesAKeyThatABlockReadsInItsReconfigureOnly) {
    const auto graph = [](const std::string& rate) {
        return "plugins = [\"libmisbehaving.so\"]\n" + block("a", "Adjustable", "rate = " + rate);
    };
    start(graph("30"), {"--control"});
    EXPECT_EQ(reload(graph("31")), told_a);
    expect_end(fenwa({"set", "--bus", bus(), "a", "rate=32"}));
    const Ended ended = without_folder(host().terminate());
    expect_end(ended, 0, told_a + "fenwa: new settings for 'a', set over the bus\n");
    EXPECT_EQ(messages(ended.out), "a: rate 31\na: rate 31\na: rate 32\na: rate 32\n");
}

}  // namespace
}  // namespace test
