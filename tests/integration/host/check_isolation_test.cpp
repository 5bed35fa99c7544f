#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <thread>

#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

using Clock = std::chrono::steady_clock;

/// Plug-ins and blocks that take the process down in which they are looked at.
class CheckIsolation : public HostTest {
  protected:
    static std::string strange(const std::string& lines) {
        return "plugins = [\"libmisbehaving.so\"]\n" + lines;
    }
    static std::string block(const std::string& name, const std::string& type,
                             const std::string& settings = "") {
        return "[blocks." + name + "]\ntype = \"" + type + "\"\n" + settings;
    }
    /// The same by `run`, before which no bus is asked for.
    Ended refuse_to_run(const std::string& graph) const {
        return without_folder(run_program(run_command(graph, {"--bus", "unix:path=/no/bus"})));
    }
};

TEST_F(CheckIsolation, CrashIsAMistakeAtItsBlockNextToAllOthers) {
    const std::string graph =
        strange(block("a", "Aborting", "before = 1\n") + block("s", "Segfaulting") +
                block("t", "Timer") + block("e", "Exiting") +
                block("x", "HalfBuilt", "then = \"exits\"\n") + block("d", "AbortingAtTheEnd") +
                "[[connections]]\nfrom = \"t.outt\"\nto = \"x.none\"\n"
                "[[connections]]\nfrom = \"y.out\"\nto = \"s.in\"\n");
    const std::string said =
        "graph.toml:2:9: error: block 'a' (Aborting) crashed in its constructor: SIGABRT\n"
        "[blocks.a]\n        ^\n"
        "graph.toml:5:9: error: block 's' (Segfaulting) crashed in setup: SIGSEGV\n"
        "[blocks.s]\n        ^\n"
        "graph.toml:7:9: error: block 't' (Timer): the required key 'interval' (an int) is "
        "missing\n[blocks.t]\n        ^\n"
        "graph.toml:9:9: error: block 'e' (Exiting) ended the process in its constructor with "
        "exit code 3\n[blocks.e]\n        ^\n"
        "graph.toml:11:9: error: block 'x' (HalfBuilt) ended the process in its constructor with "
        "exit code 0\n[blocks.x]\n        ^\n"
        "graph.toml:14:9: error: block 'd' (AbortingAtTheEnd) crashed in its destructor: SIGABRT\n"
        "[blocks.d]\n        ^\n"
        "graph.toml:20:8: error: no block 'y' in the graph\nfrom = \"y.out\"\n       ^\n"
        "graph.toml: 7 errors\n";
    const Ended ended = check(graph);
    EXPECT_EQ(ended.err, said);
    EXPECT_EQ(ended.code, 78);
    const Ended run = refuse_to_run(graph);
    EXPECT_EQ(run.err, said);
    EXPECT_EQ(run.code, 78);
    EXPECT_EQ(without_times(run.out), "{\"event\":\"exit\",\"time\":0,\"status\":78}\n");
}

TEST_F(CheckIsolation, CrashAloneGives70) {
    const std::string graph = strange(block("a", "Aborting", "before = 1\n"));
    EXPECT_EQ(check(graph).code, 70);
    EXPECT_EQ(refuse_to_run(graph).code, 70);
    const Ended drawn = run_program({FENWA_PROGRAM, "graph", folder().write("graph.toml", graph),
                                     "--plugin-dir", FENWA_TEST_PLUGINS});
    EXPECT_EQ(drawn.code, 70);
    EXPECT_EQ(drawn.out, "");
    EXPECT_EQ(lines_with(without_folder(drawn).err, "error: "),
              "graph.toml:2:9: error: block 'a' (Aborting) crashed in its constructor: SIGABRT\n");
}

TEST_F(CheckIsolation, HangEndsWithItsTime) {
    const auto begin = Clock::now();
    const Ended ended = check(strange(block("h", "HangingInSetup") + block("a", "Timer")));
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(15));
    EXPECT_EQ(ended.code, 78);
    EXPECT_EQ(lines_with(ended.err, "error: "),
              "graph.toml:2:9: error: block 'h' (HangingInSetup) did not come back from setup "
              "within 5 s\n"
              "graph.toml:4:9: error: block 'a' (Timer): the required key 'interval' (an int) is "
              "missing\n");
}

TEST_F(CheckIsolation, InterruptEndsACheckThatWaits) {
    for (const bool runs : {false, true}) {
        const std::string graph = strange(block("h", "Hanging"));
        Process waiting(runs ? run_command(graph) : check_command(graph));
        // Long enough to be at the block, and shorter than its time.
        std::this_thread::sleep_for(std::chrono::seconds(1));
        const auto begin = Clock::now();
        waiting.send_signal(SIGINT);
        EXPECT_EQ(waiting.wait().signal, SIGINT);
        EXPECT_LT(Clock::now() - begin, std::chrono::seconds(3));
    }
}

TEST_F(CheckIsolation, EntryPointThatCrashesIsAMistakeAtItsPlugin) {
    const std::string graph = "plugins = [\"libentry-aborts.so\", \"libmisbehaving.so\"]\n" +
                              block("a", "Early") + block("b", "HalfBuilt");
    const std::string said =
        "graph.toml:1:12: error: the plug-in 'libentry-aborts.so' crashed in its entry point: "
        "SIGABRT; unknown block types are not reported without it\n"
        "plugins = [\"libentry-aborts.so\", \"libmisbehaving.so\"]\n           ^\n"
        "graph.toml: 1 error\n";
    const Ended ended = check(graph);
    EXPECT_EQ(ended.err, said);
    EXPECT_EQ(ended.code, 70);
    EXPECT_EQ(refuse_to_run(graph).err, said);
}

TEST_F(CheckIsolation, EntryPointThatHangsEndsWithItsTime) {
    const Ended ended =
        check("plugins = [\"libentry-hangs.so\"]\n" + block("t", "Timer", "interval = 1\n"));
    EXPECT_EQ(ended.code, 70);
    EXPECT_EQ(lines_with(ended.err, "error: "),
              "graph.toml:1:12: error: the plug-in 'libentry-hangs.so' did not come back from its "
              "entry point within 5 s\n");
}

TEST_F(CheckIsolation, PluginThatIsNoFileIsNotOpened) {
    ASSERT_EQ(mkfifo((folder().path() / "pipe.so").c_str(), 0600), 0);
    const auto begin = Clock::now();
    const Ended ended =
        check("plugins = [\"./pipe.so\", \"/dev/zero\"]\n" + block("t", "Timer", "interval = 1\n"));
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(4));
    EXPECT_EQ(ended.code, 78);
    EXPECT_EQ(lines_with(ended.err, "error: "),
              "graph.toml:1:12: error: the plug-in './pipe.so' is not a regular file\n"
              "graph.toml:1:25: error: the plug-in '/dev/zero' is not a regular file\n");
}

TEST_F(CheckIsolation, CrashOverAValueThatIsMissingIsNoMistakeOfItsOwn) {
    EXPECT_EQ(check(strange(block("z", "ZeroShy"))).err,
              "graph.toml:2:9: error: block 'z' (ZeroShy): the required key 'count' (an int) is "
              "missing\n[blocks.z]\n        ^\ngraph.toml: 1 error\n");
}

TEST_F(CheckIsolation, AfterTooManyCrashesTheRestIsNotTried) {
    std::string blocks;
    for (char name = 'a'; name <= 't'; ++name)
        blocks += block(std::string(1, name), "HalfBuilt", "then = \"aborts\"\n");
    const Ended ended =
        check(strange(blocks + "[[connections]]\nfrom = \"t.out\"\nto = \"t.in\"\n"));
    EXPECT_EQ(ended.code, 78);
    EXPECT_TRUE(ended.err.starts_with(
        "graph.toml: error: the rest of the graph is not checked, because too much of it has "
        "crashed or hung\n"))
        << ended.err;
    EXPECT_TRUE(ended.err.ends_with("\ngraph.toml: 17 errors\n")) << ended.err;
}

TEST_F(CheckIsolation, RunningHostRefusesSettingsThatCrashABlock) {
    const std::string right = strange(block("f", "Fragile"));
    Process host(run_command(right, {"--bus", bus(), "--control"}));
    ASSERT_TRUE(host.wait_for_text("\"ready\"")) << host.err();
    folder().write("graph.toml", right + "handle_with_care = true\n");
    host.send_signal(SIGHUP);
    ASSERT_TRUE(host.wait_for_error_text("not reloaded"));
    EXPECT_EQ(without_folder({0, 0, {}, host.err()}).err,
              "graph.toml:2:9: error: block 'f' (Fragile) crashed in its constructor: SIGABRT\n"
              "[blocks.f]\n        ^\ngraph.toml: 1 error\n"
              "fenwa: graph.toml: not reloaded; the graph goes on as it was\n");
    const Ended set =
        run_program({FENWA_PROGRAM, "set", "--bus", bus(), "f", "handle_with_care=true"});
    EXPECT_EQ(set.code, 2);
    EXPECT_EQ(set.err, "fenwa: block 'f' (Fragile) crashed in its constructor: SIGABRT\n");
    EXPECT_EQ(host.terminate().code, 0);
}

/// A key that a block reads in its `reconfigure` only.
class LateKey : public CheckIsolation {};

TEST_F(LateKey, IsReadAsFarAsEverybodyIsConcerned) {
    const std::string graph = strange(block("a", "Adjustable", "rate = 30\n"));
    EXPECT_EQ(check(graph).err, "fenwa: graph.toml: no mistakes (1 block, 0 connections)\n");
    Process host(run_command(graph, {"--bus", bus(), "--control"}));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    folder().write("graph.toml", strange(block("a", "Adjustable", "rate = 31\n")));
    host.send_signal(SIGHUP);
    ASSERT_TRUE(host.wait_for_error_text("reloaded"));
    const Ended set = run_program({FENWA_PROGRAM, "set", "--bus", bus(), "a", "rate=32"});
    EXPECT_EQ(set.err, "");
    const Ended ended = without_folder(host.terminate());
    EXPECT_EQ(ended.err,
              "fenwa: graph.toml: reloaded; new settings for 'a'\n"
              "fenwa: new settings for 'a', set over the bus\n");
    EXPECT_EQ(messages(ended.out), "a: rate 31\na: rate 31\na: rate 32\na: rate 32\n");
}

TEST_F(LateKey, IsCheckedToo) {
    const Ended ended = check(strange(block("a", "Adjustable", "rate = true\nrat = 1\n")));
    EXPECT_EQ(ended.code, 78);
    EXPECT_EQ(ended.err,
              "graph.toml:4:1: error: block 'a' (Adjustable): the key 'rate' must be an int, not "
              "the boolean true\nrate = true\n^\n"
              "graph.toml:5:1: warning: Adjustable does not read the key 'rat'\nrat = 1\n^\n"
              "help: did you mean 'rate'?\ngraph.toml: 1 error, 1 warning\n");
}

TEST_F(LateKey, CrashInThatIsAWarning) {
    const Ended ended = check(
        strange(block("a", "Adjustable", "brittle = true\nunread = 1\n") + block("t", "Timer")));
    EXPECT_EQ(ended.err,
              "graph.toml:2:9: warning: block 'a' (Adjustable) crashed in reconfigure: SIGABRT\n"
              "[blocks.a]\n        ^\n"
              "graph.toml:6:9: error: block 't' (Timer): the required key 'interval' (an int) is "
              "missing\n[blocks.t]\n        ^\ngraph.toml: 1 error, 1 warning\n");
}

/// Ports of blocks that are not there in a check.
class PartlyKnownPorts : public CheckIsolation, public testing::WithParamInterface<std::string> {};

TEST_P(PartlyKnownPorts, AreCheckedAsFarAsTheyAreKnown) {
    const Ended ended = check(strange(block("h", "HalfBuilt", "then = \"" + GetParam() + "\"\n") +
                                      block("w", "HalfBuilt") +
                                      "[[connections]]\nfrom = \"h.out\"\nto = \"w.in\"\n"
                                      "[[connections]]\nfrom = \"w.out\"\nto = \"h.in\"\n"
                                      "[[connections]]\nfrom = \"h.late\"\nto = \"w.none\"\n"));
    EXPECT_EQ(lines_with(lines_with(ended.err, "graph.toml:"), "'w."),
              "graph.toml:9:6: error: 'w.in' takes double, but 'h.out' gives int\n"
              "graph.toml:12:6: error: 'h.in' takes double, but 'w.out' gives int\n");
    EXPECT_EQ(lines_with(ended.err, "has no"),
              "graph.toml:15:6: error: the block 'w' has no input 'none'\n");
}

INSTANTIATE_TEST_SUITE_P(OfABlockThat, PartlyKnownPorts,
                         testing::Values("throws", "aborts", "exits", "needs a bus"),
                         [](const auto& each) {
                             return each.param == "needs a bus" ? "NeedsABus" : each.param;
                         });

TEST_F(CheckIsolation, DatatypesAtATimerWithAWrongIntervalAreChecked) {
    EXPECT_EQ(
        lines_with(check(strange(block("t", "Timer", "interval = 0\n") + block("w", "HalfBuilt") +
                                 "[[connections]]\nfrom = \"t.out\"\nto = \"w.in\"\n"))
                       .err,
                   "error: "),
        "graph.toml:4:1: error: block 't' (Timer): the key 'interval' must be an int of 1 or "
        "more (milliseconds), not the integer 0\n"
        "graph.toml:9:6: error: 'w.in' takes double, but 't.out' gives timersource\n");
}

TEST_F(CheckIsolation, TypesAreNotComplainedOfWhileAPluginIsMissing) {
    const Ended ended =
        check("plugins = [\"libnone.so\"]\n" + block("a", "One") + block("b", "Two"));
    EXPECT_EQ(ended.code, 78);
    const std::string error = lines_with(ended.err, "error: ");
    EXPECT_TRUE(error.starts_with("graph.toml:1:12: error: no plug-in 'libnone.so' (looked in "))
        << error;
    EXPECT_TRUE(error.ends_with("); unknown block types are not reported without it\n")) << error;
    EXPECT_TRUE(ended.err.ends_with("\ngraph.toml: 1 error\n")) << ended.err;
}

}  // namespace
}  // namespace test
