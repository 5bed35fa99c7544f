#include "tests/integration/host/datagram_socket.hpp"
#include "tests/integration/host/reload_scene.hpp"

namespace test {
namespace {

class Reload : public ReloadTest {};

const std::string told_a = "fenwa: graph.toml: reloaded; new settings for 'a'\n";

TEST_F(Reload, TellsOnlyTheBlocksWhoseSettingsChangedTwiceWithNoRunInBetween) {
    start(settled("a", "level = 2\n") + settled("b", "level = 3\n") + settled("c", "level = 4\n"));
    EXPECT_EQ(reload(settled("a", "level = 2\nnote = \"new\"\n") + settled("b", "level = 3\n") +
                     settled("c", "level = 5.5\n")),
              "fenwa: graph.toml: reloaded; new settings for 'a', 'c'\n");
    ASSERT_TRUE(host().wait_for_text("c: run"));
    EXPECT_EQ(stop(),
              "a: 2 none 7 -> 2 new 7\na: 2 new 7 -> 2 new 7\n"
              "c: 4 none 7 -> 5.5 none 7\nc: 5.5 none 7 -> 5.5 none 7\na: run\nc: run\n");
}

TEST_F(Reload, StartsFromTheSettingsOfTheLastOne) {
    start(settled("a", "level = 2\n"));
    EXPECT_EQ(reload(settled("a", "level = 3\n")), told_a);
    EXPECT_EQ(reload(settled("a", "level = 4\n")), told_a);
    ASSERT_TRUE(host().wait_for_text("a: run"));
    EXPECT_EQ(lines_with(stop(), "->"),
              "a: 2 none 7 -> 3 none 7\na: 3 none 7 -> 3 none 7\n"
              "a: 3 none 7 -> 4 none 7\na: 4 none 7 -> 4 none 7\n");
}

TEST_F(Reload, GivesAKeyThatWasTakenAwayItsDefaultAgain) {
    start(settled("a", "level = 2\nnote = \"x\"\nhidden = 8\n"));
    EXPECT_EQ(reload(settled("a", "level = 2\n")), told_a);
    ASSERT_TRUE(host().wait_for_text("a: run"));
    EXPECT_EQ(stop(), "a: 2 x 8 -> 2 none 7\na: 2 none 7 -> 2 none 7\na: run\n");
}

TEST_F(Reload, OfAFileWithTheSameSettingsTellsNobody) {
    start(settled("a", "level = nan\nnote = \"x\"\n") + settled("b", "level = 1\n"));
    EXPECT_EQ(reload(), "fenwa: graph.toml: reloaded; no settings have changed\n");
    // In another order, on other lines, written otherwise.
    EXPECT_EQ(reload("# moved\n" + settled("b", "level = 1\n") +
                     settled("a", "note = 'x'\nlevel = nan\n")),
              "fenwa: graph.toml: reloaded; no settings have changed\n");
    EXPECT_EQ(stop(), "");
}

TEST_F(Reload, DeliversWhatABlockPublishesWhenItIsTold) {
    const std::string sink =
        "[blocks.s]\ntype = \"Sink\"\n[[connections]]\nfrom = \"a.level\"\nto = \"s.double\"\n";
    start(settled("a", "level = 2\n") + sink);
    EXPECT_EQ(reload(settled("a", "level = 3\n") + sink), told_a);
    ASSERT_TRUE(host().wait_for_text("s: run"));
    const Ended ended = host().terminate();
    EXPECT_EQ(without_times(lines_with(ended.out, "output")),
              "{\"event\":\"output\",\"time\":0,\"block\":\"a\",\"port\":\"level\","
              "\"type\":\"double\",\"value\":3.0}\n");
    EXPECT_EQ(lines_with(messages(ended.out), "s: run"),
              "s: run double!=3 other=0 quiet=0 float=0 int=0 bool=false tick=0 point=0\n");
}

TEST_F(Reload, GivesATimerItsNewInterval) {
    const std::string timer = "[blocks.t]\ntype = \"Timer\"\ninterval = ";
    start(timer + "1000000\n");
    EXPECT_EQ(reload(timer + "5\n"), "fenwa: graph.toml: reloaded; new settings for 't'\n");
    EXPECT_TRUE(host().wait_for_text(R"({"ticks":2,"period_ms":5})"));
}

TEST_F(Reload, LaysTheChangesOverWhatABlockHasThatCannotBeBuiltWithoutABus) {
    const std::string bound = "needs_a_bus = true\n";
    start(settled("a", bound + "level = 2\nnote = \"x\"\n"));
    EXPECT_EQ(reload(settled("a", bound + "level = 3\nnote = \"x\"\n")), told_a);
    ASSERT_TRUE(host().wait_for_text("a: run"));
    EXPECT_EQ(stop(), "a: 2 x 7 -> 3 x 7\na: 3 x 7 -> 3 x 7\na: run\n");
}

TEST_F(Reload, LeavesNoLogLinesOfTheBlocksThatItTriesOut) {
    start(settled("a", "speaks = true\n"));
    EXPECT_EQ(reload(settled("a", "speaks = true\nlevel = 3\n")), told_a);
    ASSERT_TRUE(host().wait_for_text("a: run"));
    EXPECT_EQ(stop(), "a: built\na: 1 none 7 -> 3 none 7\na: 3 none 7 -> 3 none 7\na: run\n");
}

TEST_F(Reload, ThatIsAskedForDuringTheStopChangesNothing) {
    start("[blocks.l]\ntype = \"Leaver\"\nstop_ms = 400\n" + settled("a", ""));
    rewrite("[blocks.l]\ntype = \"Leaver\"\nstop_ms = 400\n" + settled("a", "level = 2\n"));
    host().send_signal(SIGTERM);
    ASSERT_TRUE(host().wait_for_text("l: stop"));
    host().send_signal(SIGHUP);
    const Ended ended = host().wait();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
}

TEST_F(Reload, WarnsOfAKeyThatTheBlockDoesNotRead) {
    start(settled("a", "level = 2\n"));
    EXPECT_EQ(reload(settled("a", "level = 3\nnoet = \"x\"\n")),
              "graph.toml:5:1: warning: Settled does not read the key 'noet'\nnoet = \"x\"\n^\n"
              "help: did you mean 'note'?\ngraph.toml: 1 warning\n" +
                  told_a);
    EXPECT_EQ(lines_with(stop(), "a: 3"), "a: 3 none 7 -> 3 none 7\n");
}

TEST_F(Reload, ChangesThePaceOfTheBlocks) {
    const std::string spinner = "[blocks.s]\ntype = \"Spinner\"\n" + settled("a", "");
    start("[host]\nrun_burst = 1\nrun_rate = 0.001\n" + spinner);
    ASSERT_TRUE(host().wait_for_text("s: spins"));
    EXPECT_EQ(reload("[host]\nrun_rate = 0\n" + spinner + "level = 2\n"),
              "fenwa: graph.toml: reloaded; new settings for [host], 'a'\n");
    ASSERT_TRUE(host().wait_for_text("a: run"));
    EXPECT_EQ(reload("[host]\nrun_rate = 0.5\n" + spinner + "level = 2\n"),
              "fenwa: graph.toml: reloaded; new settings for [host]\n");
    const std::string log = stop();
    EXPECT_GT(std::stoi(log.substr(log.find("s: ", log.find("a: run")) + 3)), 10) << log;
}

TEST_F(Reload, OfManyBlocksNamesTheFirstOnes) {
    std::string before;
    std::string after;
    for (int i = 0; i < 10; ++i) {
        before += settled("b" + std::to_string(i), "level = 2\n");
        after += settled("b" + std::to_string(i), "level = 3\n");
    }
    start(before);
    EXPECT_EQ(reload(after),
              "fenwa: graph.toml: reloaded; new settings for 'b0', 'b1', 'b2', 'b3', 'b4', 'b5', "
              "'b6', 'b7' and 2 more\n");
}

TEST_F(Reload, ThatWasAskedForDuringTheStartIsDoneAfterIt) {
    const std::string slow = "[blocks.p]\ntype = \"Probe\"\nstart_ms = 500\n";
    Process host(run_command(probes(slow + settled("a", "level = 2\n")), {"--bus", bus()}));
    ASSERT_TRUE(host.wait_for_text("p: takes its time"));
    rewrite(slow + settled("a", "level = 3\n"));
    host.send_signal(SIGHUP);
    ASSERT_TRUE(host.wait_for_error_text("reloaded; new settings for 'a'"));
    const Ended ended = host.terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_LT(ended.out.find("\"ready\""), ended.out.find("a: 2 none 7 -> 3 none 7"));
}

TEST_F(Reload, IsToldToTheServiceManager) {
    const std::string path = (folder().path() / "notify").string();
    const DatagramSocket socket(path);
    Process host(run_command(probes(settled("a", "level = 2\n")), {"--bus", bus()}),
                 {{"NOTIFY_SOCKET", path}});
    ASSERT_EQ(socket.receive(), "READY=1");
    host.send_signal(SIGHUP);
    const std::string told = socket.receive();
    EXPECT_TRUE(told.starts_with("RELOADING=1\nMONOTONIC_USEC=")) << told;
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const double age =
        static_cast<double>(now.tv_sec) - std::stod(told.substr(told.rfind('=') + 1)) / 1e6;
    EXPECT_LT(std::abs(age), 20.0);
    EXPECT_EQ(socket.receive(), "READY=1");
    EXPECT_EQ(host.terminate().code, 0);
}

}  // namespace
}  // namespace test
