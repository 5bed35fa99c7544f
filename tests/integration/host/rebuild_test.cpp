#include <chrono>
#include <csignal>

#include "tests/integration/host/asked.hpp"
#include "tests/integration/host/bus_listener.hpp"
#include "tests/integration/host/control_client.hpp"
#include "tests/integration/host/host_test.hpp"
#include "tests/support/json_printing.hpp"

namespace test {
namespace {

std::string reloaded(const std::string& what) {
    return "fenwa: graph.toml: reloaded; " + what + "\n";
}

std::string connection(const std::string& from, const std::string& to) {
    return "[[connections]]\nfrom = \"" + from + "\"\nto = \"" + to + "\"\n";
}

/// Blocks that a reload builds anew, adds and removes.
class Rebuild : public HostTest {
  protected:
    /// Stops the host. @returns what its blocks have logged.
    std::string log() {
        const Ended ended = host().terminate();
        EXPECT_EQ(ended.code, 0);
        return messages(ended.out);
    }
    /// The settings of the first block as the host shows them.
    static nlohmann::json settings() {
        return nlohmann::json::parse(ControlClient(bus()).describe())
            .at("blocks")
            .at(0)
            .at("settings");
    }
};

TEST_F(Rebuild, IsForAKeyThatTheBlockReadsOnlyWhenItIsBuiltAndLeavesTheOthersAlone) {
    const std::string other = block("q", "Probe");
    start(block("p", "Probe") + other, {}, "q: run");
    EXPECT_EQ(reload(block("p", "Probe", "throws = \"odd\"") + other), reloaded("rebuilt 'p'"));
    ASSERT_TRUE(host().wait_for_text("p: run"));
    EXPECT_EQ(log(),
              "p: constructor\nq: constructor\np: setup\nq: setup\np: start\nq: start\n"
              "p: run\nq: run\n"
              "p: stop\np: destructor\np: constructor\np: setup\np: start\np: run\n"
              "q: stop\np: stop\nq: destructor\np: destructor\n");
}

TEST_F(Rebuild, IsForABlockThatCannotBeTriedOutWithoutABus) {
    start(block("a", "Settled", "needs_a_bus = true, speaks = true, level = 2"));
    EXPECT_EQ(reload(block("a", "Settled", "needs_a_bus = true, speaks = true")),
              reloaded("rebuilt 'a'"));
    EXPECT_EQ(reload(block("a", "Settled", "speaks = true")), reloaded("rebuilt 'a'"));
    EXPECT_EQ(log(), "a: built\na: built\na: built\n");
}

TEST_F(Rebuild, StopsInReverseOrderAndStartsInTheOrderOfTheNewFile) {
    const auto probe = [](const std::string& name, const std::string& settings = {}) {
        return block(name, "Probe", settings);
    };
    start(probe("a") + probe("b") + probe("c") + probe("d"), {}, "d: run");
    const std::size_t known = host().out().size();
    const std::string changed = "throws = \"odd\"";
    EXPECT_EQ(reload(probe("e") + probe("d", changed) + probe("b") + probe("a", changed)),
              reloaded("rebuilt 'd', 'a'; added 'e'; removed 'c'"));
    ASSERT_TRUE(host().wait_for_text("a: run"));
    host().send_signal(SIGTERM);
    const std::string out = host().wait().out;
    EXPECT_EQ(messages(out.substr(known)),
              "d: stop\nc: stop\na: stop\nd: destructor\nc: destructor\na: destructor\n"
              "e: constructor\nd: constructor\na: constructor\ne: setup\nd: setup\na: setup\n"
              "e: start\nd: start\na: start\ne: run\nd: run\na: run\n"
              "a: stop\nb: stop\nd: stop\ne: stop\n"
              "a: destructor\nb: destructor\nd: destructor\ne: destructor\n");
}

TEST_F(Rebuild, GivesTheNameOfABlockToAnotherType) {
    start(block("a", "Source", "in_start = 3") + block("s", "Sink", "only = \"double\"") +
              connection("a.out", "s.double"),
          {"--control"}, "s: run double!=3");
    EXPECT_EQ(reload(block("a", "Settled", "level = 2") + block("s", "Sink", "only = \"double\"") +
                     connection("a.level", "s.double")),
              reloaded("rebuilt 'a'; connected 'a.level' to 's.double'; disconnected 'a.out' from "
                       "'s.double'"));
    const ControlClient client(bus());
    EXPECT_EQ(client.read("s.double"), "d 0");
    EXPECT_EQ(client.call("Reconfigure", "sa{sv}", "a", 1, "level", "d", 5.0), "ok");
    ASSERT_TRUE(host().wait_for_text("s: run double!=5"));
    EXPECT_EQ(settings().at("level"), 5.0);
}

TEST_F(Rebuild, WarnsOfWhatCannotWorkInWhatIsNewAlone) {
    const std::string plugins = "plugins = [\"libprobe.so\", \"libfenwa-temperature.so\"]\n";
    const auto monitor = [](const std::string& name) {
        return block(name, "PowerMonitor", "requested_power = 1.0");
    };
    const std::string known = plugins + block("old", "Settled", "hidden = 2000") + monitor("one");
    start(known + block("a", "Settled"));
    const std::string said = reload(known + block("a", "Settled", "hidden = -1") + monitor("two"));
    EXPECT_EQ(
        lines_with(said, "warning: "),
        "graph.toml:4:31: warning: block 'a' (Settled): 'hidden' should be 0 to 1000, not -1\n"
        "graph.toml:5:8: warning: the blocks 'one' and 'two' are both a PowerMonitor; with two "
        "in one host, only the later one hears of changes\n");
    EXPECT_EQ(lines_with(said, "reloaded"),
              "fenwa: graph.toml: reloaded; added 'two'; new settings for 'a'\n");
    EXPECT_EQ(reload(known + block("a", "Settled", "hidden = -1") + monitor("two") +
                     block("new", "Settled")),
              reloaded("added 'new'"));
}

TEST_F(Rebuild, ConnectsTheNewOutputToTheInputsOfTheOthers) {
    const auto graph = [](int in_start) {
        return block("a", "Source", "in_start = " + std::to_string(in_start)) +
               block("s", "Sink", "only = \"double\"") +
               block("t", "Terminated", "settings = \"every type\"") +
               connection("a.out", "s.double") + connection("a.out", "t.level");
    };
    start(graph(3), {"--control"}, "s: run double!=3");
    const ControlClient client(bus());
    EXPECT_EQ(client.read("t.level"), "d 3");
    // It has not published yet.
    EXPECT_EQ(reload(graph(0)), reloaded("rebuilt 'a'"));
    EXPECT_EQ(client.read("a.out"), "d 0");
    EXPECT_EQ(client.read("s.double"), "d 0");
    EXPECT_EQ(client.read("t.level"), "d 5");
    EXPECT_EQ(reload(graph(7)), reloaded("rebuilt 'a'"));
    ASSERT_TRUE(host().wait_for_text("s: run double!=7"));
    EXPECT_EQ(client.read("t.level"), "d 7");
}

TEST_F(Rebuild, GivesTheNewInputsTheValuesThatTheOldOnesHad) {
    const auto graph = [](const std::string& only) {
        return block("a", "Source", "in_start = 3") + block("t", "Timer", "interval = 1000000") +
               block("s", "Sink", "only = \"" + only + "\"") + connection("a.out", "s.double") +
               connection("t.out", "s.tick");
    };
    start(graph("double"), {"--control"}, "s: run double!=3");
    const ControlClient client(bus());
    EXPECT_EQ(client.write("s.int", "i", 4), "ok");
    ASSERT_TRUE(host().wait_for_text("s: run double=3"));
    EXPECT_EQ(reload(graph("")), reloaded("rebuilt 's'"));
    ASSERT_TRUE(
        host().wait_for_text("s: run double!=3 other=0 quiet=0 float=0 int!=4 bool=false "
                             "tick=0 point=0"));
    EXPECT_EQ(client.write("s.int", "i", 5), "ok");
    ASSERT_TRUE(host().wait_for_text("s: run double=3 other=0 quiet=0 float=0 int!=5"));
}

TEST_F(Rebuild, ConnectionsThatAreAddedAndRemovedTakeEffectAtOnce) {
    const std::string blocks = block("a", "Source", "in_start = 3") +
                               block("s", "Sink", "only = \"double\"") +
                               block("o", "Sink", "only = \"other\"");
    start(blocks + connection("a.out", "s.double"), {"--control"}, "s: run double!=3");
    const ControlClient client(bus());
    EXPECT_EQ(client.write("o.other", "d", 9.0), "ok");
    ASSERT_TRUE(host().wait_for_text("o: run other!=9"));
    EXPECT_EQ(reload(blocks + connection("a.out", "o.other")),
              reloaded("connected 'a.out' to 'o.other'; disconnected 'a.out' from 's.double'"));
    ASSERT_TRUE(host().wait_for_text("o: run other!=3"));
    EXPECT_EQ(client.read("s.double"), "d 0");
    EXPECT_EQ(client.write("s.double", "d", 6.0), "ok");
    EXPECT_EQ(client.write("o.other", "d", 6.0),
              "ConnectedInput: 'o.other' is connected to 'a.out'");
    EXPECT_EQ(reload(blocks), reloaded("disconnected 'a.out' from 'o.other'"));
    EXPECT_EQ(client.read("o.other"), "d 0");
    EXPECT_EQ(client.read("s.double"), "d 6");
}

TEST_F(Rebuild, BlocksThatAreAddedAndRemovedComeAndGoWithTheirConnections) {
    const std::string source = block("a", "Source", "in_start = 3");
    const std::string sink = block("s", "Sink", "only = \"double\"");
    start(source, {"--control"});
    EXPECT_EQ(reload(source + sink + connection("a.out", "s.double")),
              reloaded("added 's'; connected 'a.out' to 's.double'"));
    ASSERT_TRUE(host().wait_for_text("s: run double!=3"));
    EXPECT_EQ(reload(sink), reloaded("removed 'a'; disconnected 'a.out' from 's.double'"));
    const ControlClient client(bus());
    EXPECT_EQ(client.read("a.out"), "UnknownBlock: no block 'a' in the graph");
    EXPECT_EQ(client.read("s.double"), "d 0");
    EXPECT_EQ(reload(source), reloaded("added 'a'; removed 's'"));
    EXPECT_EQ(client.read("a.out"), "d 3");
}

TEST_F(Rebuild, ExportsTheObjectAnewAtTheSamePlace) {
    const auto graph = [](const std::string& more) {
        return "bus.names = [\"com.example.Rebuilt\"]\n" +
               block("e", "Exporter", "path = \"/e\"" + more);
    };
    start(graph(""));
    EXPECT_EQ(reload(graph(", phase = \"start\"")), reloaded("rebuilt 'e'"));
    EXPECT_EQ(BusListener(bus()).echo("com.example.Rebuilt", "/e", "a"), "e heard a");
    EXPECT_EQ(log(), "e: was called\n");
}

TEST_F(Rebuild, AnswersToCallsOfTheOldBlockReachNobody) {
    Asked service(bus());
    start(block("h", "Hearer"));
    service.wait_for_question();
    EXPECT_EQ(reload(block("h", "Sink")), reloaded("rebuilt 'h'"));
    service.answer();
    EXPECT_EQ(reload(block("h", "Hearer")), reloaded("rebuilt 'h'"));
    // The answer to this one comes after the other one.
    service.wait_for_question();
    service.answer();
    ASSERT_TRUE(host().wait_for_text("an answer"));
    EXPECT_EQ(log(), "an answer\n");
}

TEST_F(Rebuild, ValuesOfBlocksThatAreReadyOrWaitForTheirTurnAreNotLost) {
    // One waits for its budget; the other one is ready when the reload comes.
    const auto graph = [](const std::string& settings) {
        return "host = {run_burst = 1, run_rate = 0.001}\n" +
               block("w", "Source", "runs = 100" + settings) +
               block("s", "Sink", "only = \"double\"") + connection("w.out", "s.double");
    };
    start(graph(""), {}, "w: run");
    EXPECT_EQ(reload(graph(", constant = 5.0")), reloaded("rebuilt 'w'"));
    EXPECT_TRUE(host().wait_for_text("w: run"));
    EXPECT_EQ(
        reload(block("s", "Sink", "only = \"double\"")),
        reloaded("removed 'w'; disconnected 'w.out' from 's.double'; new settings for [host]"));
    EXPECT_EQ(lines_with(log(), "w: run"), "w: run\nw: run\n");
}

/// A block that fails, and how the old one comes back.
struct Failure : Case {
    std::string phase;
    std::string new_life;
    bool refuses = false;
};

class RebuildFailure : public Rebuild, public testing::WithParamInterface<Failure> {
  protected:
    static std::string frail(const std::string& settings = {}) {
        return block("f", "Frail", settings);
    }
};

TEST_P(RebuildFailure, BuildsTheOldBlockAgainAndChangesNothingElse) {
    const std::string& phase = GetParam().phase;
    const bool refuses = GetParam().refuses;
    const auto graph = [](const std::string& level, const std::string& others) {
        return block("a", "Settled", "level = " + level) + others + block("s", "Sink") +
               connection("a.level", "s.double");
    };
    start(graph("2", frail()), {"--control"});
    const std::string line =
        frail("in = \"" + phase + "\", refuses = " + (refuses ? "true" : "false"));
    const std::string added = block("n", "Probe");
    const std::string reason = refuses
                                   ? "graph.toml:3:29: error: block 'f' (Frail): the key 'in' must "
                                     "be a string that this block likes, not another one\n" +
                                         line + std::string(28, ' ')
                                   : "graph.toml:3:8: error: block 'f' (Frail) threw in " +
                                         std::string(phase == "constructor" ? "its " : "") + phase +
                                         ": thrown on purpose\n" + line + std::string(7, ' ');
    EXPECT_EQ(reload(graph("3", line + added)),
              reason + "^\ngraph.toml: 1 error\n" +
                  "fenwa: graph.toml: not reloaded; the graph goes on as it was, with 'f' built "
                  "again\n");
    const ControlClient client(bus());
    EXPECT_EQ(client.read("s.double"), "d 2");
    EXPECT_EQ(settings().at("level"), 2.0);
    EXPECT_EQ(client.read("n.stopped"), "UnknownBlock: no block 'n' in the graph");
    const std::string before = "f: constructor\nf: setup\nf: start\n";
    EXPECT_EQ(lines_with(log(), "f: "), before + "f: stop\nf: destructor\n" + GetParam().new_life +
                                            before + "f: stop\nf: destructor\n");
}

INSTANTIATE_TEST_SUITE_P(
    InIts, RebuildFailure,
    testing::Values(Failure{{"Constructor"}, "constructor", "f: constructor\n"},
                    Failure{{"Setup"}, "setup", "f: constructor\nf: setup\nf: destructor\n"},
                    Failure{
                        {"Start"}, "start", "f: constructor\nf: setup\nf: start\nf: destructor\n"},
                    Failure{{"StartWithARefusal"},
                            "start",
                            "f: constructor\nf: setup\nf: start\nf: destructor\n",
                            true}),
    name_of<Failure>);

TEST_F(RebuildFailure, StopsTheNewBlocksThatHaveStarted) {
    start(block("q", "Probe"), {}, "q: run");
    const std::size_t known = host().out().size();
    EXPECT_TRUE(reload(block("q", "Probe") + block("n", "Probe") + frail("in = \"start\""))
                    .ends_with("not reloaded; the graph goes on as it was\n"));
    host().send_signal(SIGTERM);
    EXPECT_EQ(messages(host().wait().out.substr(known)),
              "n: constructor\nf: constructor\nn: setup\nf: setup\nn: start\nf: start\n"
              "n: stop\nf: destructor\nn: destructor\nq: stop\nq: destructor\n");
}

TEST_F(RebuildFailure, EndsTheHostIfTheOldBlockCannotBeBuiltAgain) {
    const auto graph = [](const std::string& more) {
        return block("p", "Probe") + frail("in = \"start\", times = 2" + more);
    };
    start(graph(""), {}, "p: run");
    const std::size_t known = host().out().size();
    write_graph(graph(", refuses = false"));
    host().send_signal(SIGHUP);
    const Ended ended = without_folder(host().wait());
    const std::string sentence = "block 'f' (Frail) threw in start: thrown on purpose\n";
    expect_end(
        ended, 70,
        "graph.toml:3:8: error: " + sentence + frail("in = \"start\", times = 2, refuses = false") +
            "       ^\ngraph.toml: 1 error\n"
            "graph.toml:3:8: error: the graph cannot be built again as it was: " +
            sentence + frail("in = \"start\", times = 2") + "       ^\ngraph.toml: 1 error\n");
    EXPECT_EQ(messages(ended.out.substr(known)),
              "f: stop\nf: destructor\nf: constructor\nf: setup\nf: start\nf: destructor\n"
              "f: constructor\nf: setup\nf: start\nf: destructor\np: stop\np: destructor\n");
}

TEST_F(RebuildFailure, OfTheOldBlockInItsStopIsToldAndHindersNothing) {
    for (const bool refuses : {false, true}) {
        const std::string in_stop =
            std::string("in = \"stop\", refuses = ") + (refuses ? "true" : "false");
        start(frail(in_stop));
        EXPECT_EQ(reload(frail("in = \"\"")),
                  std::string("fenwa: block 'f' ") +
                      (refuses ? "threw in stop: the key 'in' must be a string that this block "
                                 "likes, not another one\n"
                               : "(Frail) threw in stop: thrown on purpose\n") +
                      reloaded("rebuilt 'f'"));
        EXPECT_EQ(log(),
                  "f: constructor\nf: setup\nf: start\nf: stop\nf: destructor\n"
                  "f: constructor\nf: setup\nf: start\nf: stop\nf: destructor\n");
    }
}

TEST_F(RebuildFailure, OfABlockThatRefusesNewSettingsComesBeforeAnyIsTakenOut) {
    const auto graph = [](const std::string& level, const std::string& more) {
        return block("a", "Settled", "level = " + level) + frail(more);
    };
    start(graph("2", ""));
    EXPECT_TRUE(
        reload(graph("13", "times = 5")).ends_with("not reloaded; the graph goes on as it was\n"));
    EXPECT_EQ(lines_with(log(), "f: "),
              "f: constructor\nf: setup\nf: start\nf: stop\nf: destructor\n");
}

TEST_F(Rebuild, ReloadThatIsAskedForDuringOneIsDoneAfterIt) {
    const auto slow = [](int ms) {
        return block("p", "Probe", "start_ms = " + std::to_string(ms));
    };
    start(slow(0));
    write_graph(slow(400));
    host().send_signal(SIGHUP);
    ASSERT_TRUE(host().wait_for_text("p: takes its time"));
    write_graph(slow(0) + block("q", "Probe"));
    host().send_signal(SIGHUP);
    ASSERT_TRUE(host().wait_for_error_text("added 'q'"));
    EXPECT_EQ(without_folder(host().err()),
              reloaded("rebuilt 'p'") + reloaded("rebuilt 'p'; added 'q'"));
}

/// `fenwa set` with keys that a block reads only when it is built.
class SetRebuild : public Rebuild {
  protected:
    static Ended set(const Words& words) { return fenwa(Words{"set", "--bus", bus()} + words); }
    void expect_rebuilt(const Words& words, const std::string& warning = {}) {
        expect_end(set(Words{"--rebuild"} + words), 0, warning);
        EXPECT_TRUE(host().wait_for_error_text("fenwa: rebuilt '" + words.front() +
                                               "', asked for over the bus"));
    }
    static void expect_refused(const Words& words, const std::string& sentence, int code = 2) {
        expect_end(set(words), code, "fenwa: " + sentence + "\n");
    }
};

TEST_F(SetRebuild, IsNamedWhereAKeyIsReadOnlyThen) {
    start("plugins = [\"libfenwa-temperature.so\"]\n" +
              block("guard", "TemperatureMonitor", "sensor_name = \"main\"") +
              block("reader", "TemperatureReader", "sensor_name = \"main\", delta_chg = 0.5"),
          {"--control"});
    expect_refused({"guard", "high_off_temp=40.0"},
                   "'guard' reads 'high_off_temp' only when it is built; --rebuild builds it anew");
    expect_refused({"reader", "fake.active=true", "delta_chg=0.25"},
                   "'reader' reads 'delta_chg' only when it is built; --rebuild builds it anew");
    EXPECT_EQ(
        ControlClient(bus()).call("Reconfigure", "sa{sv}", "guard", 1, "high_off_temp", "d", 40.0),
        "NotLive: 'guard' reads 'high_off_temp' only when it is built; --rebuild builds it "
        "anew");
    EXPECT_FALSE(settings().contains("high_off_temp"));
    // It reads this one only with another one.
    expect_end(set({"reader", "fake.value=40.5"}));
    expect_rebuilt({"guard", "high_off_temp=40.0"},
                   "fenwa: block 'guard' (TemperatureMonitor): 'high_on_temp' (998.0 by default) "
                   "should not be above 'high_off_temp' (40.0); the order is low_off_temp <= "
                   "high_on_temp <= high_off_temp\n");
    EXPECT_EQ(settings().at("high_off_temp"), 40.0);
}

TEST_F(SetRebuild, IsNamedForKeysThatDependOnOthersToo) {
    start("plugins = [\"libmisbehaving.so\"]\n" + block("a", "Conditional") +
              block("b", "Careful") + block("c", "Adjustable", "brittle = true"),
          {"--control"});
    // It reads this one only with the boolean key "advanced".
    expect_refused({"a", "mode.gain=0.75"},
                   "'a' reads 'mode.gain' only when it is built; --rebuild builds it anew");
    expect_end(set({"a", "rate=30"}));
    // A block that nobody has asked for, with a boolean toggled, aborts without a word.
    expect_end(set({"b", "rate=30"}));
    expect_refused({"b", "unused=2"},
                   "'b' reads 'unused' only when it is built; --rebuild builds it anew");
    // What aborts in `reconfigure` is not reconfigured.
    expect_refused({"c", "rate=30"},
                   "'c' crashes or hangs when it is reconfigured; --rebuild builds it anew");
    EXPECT_EQ(lines_with(without_folder(host().err()), "warning"), "");
}

TEST_F(SetRebuild, KeepsTheOtherSettingsAndIsTakenBackByAReload) {
    start(block("a", "Settled", "speaks = true, level = 2"), {"--control"});
    expect_end(set({"a", "level=3"}));
    expect_rebuilt({"a", "note=x"});
    EXPECT_EQ(settings(),
              nlohmann::json::parse(R"({"level":3,"note":"x","hidden":7,"speaks":true})"));
    expect_rebuilt({"a"});
    EXPECT_EQ(settings().at("note"), "x");
    EXPECT_EQ(reload(), reloaded("new settings for 'a'"));
    EXPECT_EQ(settings().at("level"), 2);
    EXPECT_EQ(lines_with(log(), "built"), "a: built\na: built\na: built\n");
}

TEST_F(SetRebuild, RefusesWhatIsWrongAndChangesNothing) {
    start(block("a", "Settled", "speaks = true") + block("f", "Frail") +
              block("b", "Settled", "needs_a_bus = true"),
          {"--control"});
    expect_refused({"a"}, "KEY=VALUE is required without --rebuild");
    expect_refused({"--rebuild", "x"}, "no block 'x' in the graph");
    expect_refused({"--rebuild", "a", "lvel=2"},
                   "Settled does not read the key 'lvel'; did you mean 'level'?");
    expect_refused({"--rebuild", "a", "level=high"},
                   "block 'a' (Settled): the key 'level' must be a double, not the string "
                   "\"high\"");
    expect_refused({"b", "level=2"},
                   "'b' cannot be built without a bus, so that the host does not know which keys "
                   "it reads while it runs; --rebuild builds it anew");
    expect_refused({"--rebuild", "f", "in=start"},
                   "block 'f' (Frail) threw in start: thrown on purpose; it is built again as it "
                   "was",
                   70);
    expect_refused({"--rebuild", "f", "in=start", "refuses=true"},
                   "block 'f' (Frail): the key 'in' must be a string that this block likes, not "
                   "another one; it is built again as it was");
    EXPECT_EQ(ControlClient(bus()).call("Rebuild", "sa{sv}", "f", 1, "in", "s", "setup"),
              "RebuildFailed: block 'f' (Frail) threw in setup: thrown on purpose; it is built "
              "again as it was");
    expect_rebuilt({"b", "level=2"});
    EXPECT_EQ(lines_with(log(), "built"), "a: built\n");
}

TEST_F(SetRebuild, WatchersHearTheNewBlock) {
    start(block("a", "Source") + block("s", "Sink"), {"--control"});
    ControlClient client(bus());
    client.listen();
    expect_rebuilt({"a", "in_start=2"});
    EXPECT_EQ(client.changes(1), std::vector<std::string>{"a.out d 2"});
}

TEST_F(Rebuild, OfAThousandBlocksIsSoonDone) {
    constexpr int pairs = 500;
    const auto graph = [](const std::string& source, const std::string& sink) {
        std::string text;
        for (int i = 0; i < pairs; ++i) {
            const std::string number = std::to_string(i);
            text += block("a" + number, "Source", source) + block("s" + number, "Sink", sink);
        }
        for (int i = 0; i < pairs; ++i)
            text += connection("a" + std::to_string(i) + ".out",
                               "s" + std::to_string((i + 1) % pairs) + ".double");
        return text;
    };
    start(graph("in_start = 1", "only = \"double\""), {}, "s0: run double!=1");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(reload(graph("in_start = 2", "only = \"other\"")),
              reloaded("rebuilt 'a0', 's0', 'a1', 's1', 'a2', 's2', 'a3', 's3' and 992 more"));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    EXPECT_TRUE(host().wait_for_text("s0: run other=0"));
}

}  // namespace
}  // namespace test
