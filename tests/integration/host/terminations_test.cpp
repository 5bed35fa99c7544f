#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

/// Inputs that a block's setup has the host provide.
class TerminatedInputs : public HostTest {
  protected:
    static std::string terminated(const std::string& settings, const std::string& more = {}) {
        return "[blocks.t]\ntype = \"Terminated\"\nsettings = \"" + settings + "\"\n" + more;
    }
    static std::string connect(const std::string& from, const std::string& to) {
        return "[[connections]]\nfrom = \"" + from + "\"\nto = \"" + to + "\"\n";
    }

    /// Expects that check and run end with 78 and say this, the latter before anything starts.
    void expect_mistake(const std::string& graph, const std::string& said) const {
        const Ended checked = check(probes(graph));
        EXPECT_EQ(checked.code, 78);
        EXPECT_EQ(checked.err, said);
        const Ended ran =
            without_folder(run_program(run_command(probes(graph), {"--bus", "unix:path=/no/bus"})));
        EXPECT_EQ(ran.code, 78);
        EXPECT_EQ(ran.err, said);
        EXPECT_EQ(without_times(ran.out), "{\"event\":\"exit\",\"time\":0,\"status\":78}\n");
    }
};

const std::string values = "[blocks.v]\ntype = \"Values\"\n";
const std::string source = "[blocks.s]\ntype = \"Source\"\nin_start = 1\n";

TEST_F(TerminatedInputs, AreShownWithAllOtherSettings) {
    const Ended ended = run(probes(terminated("monitor")), {"--for", "0.05"});
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(without_times(ended.out),
              R"({"event":"setup","time":0,"block":"t","settings":{"temperature_ok":true,)"
              R"("termination_cfg.inports":["temp_monitor_in"],)"
              R"("termination_cfg.types":["/prefix/well-known.b/bool"],)"
              R"("termination_cfg.temp_monitor_in_def":true}})"
              "\n{\"event\":\"ready\",\"time\":0}\n{\"event\":\"exit\",\"time\":0,\"status\":0}\n");
}

TEST_F(TerminatedInputs, TakeConnectionsAndDoNotRunTheBlock) {
    const std::string graph =
        probes(terminated("every type") + values + connect("v.double", "t.level") +
               connect("v.int", "t.limit") + connect("v.float", "t.ratio") +
               connect("v.bool", "t.ok") + connect("v.tick", "t.tick"));
    EXPECT_EQ(check(graph).err, "fenwa: graph.toml: no mistakes (2 blocks, 5 connections)\n");
    const Ended ended = run(graph, {"--for", "0.1"});
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(messages(ended.out), "");
}

TEST_F(TerminatedInputs, LeaveTheBlocksOwnInputsAsTheyAre) {
    const Ended ended = run(probes(terminated("every type") + source + connect("s.out", "t.level") +
                                   connect("s.out", "t.own")),
                            {"--for", "0.1"});
    EXPECT_EQ(ended.code, 0) << ended.err;
    EXPECT_EQ(messages(ended.out), "t: run, with the inputs own\n");
}

TEST_F(TerminatedInputs, MayBeNamedByPlainStrings) {
    const Ended ended = check(
        probes(terminated("plain strings") + values + connect("v.bool", "t.temp_monitor_in")));
    EXPECT_EQ(ended.err, "fenwa: graph.toml: no mistakes (2 blocks, 1 connection)\n");
}

TEST_F(TerminatedInputs, StandAmongTheInputsThatAreSuggestedOrListed) {
    expect_mistake(terminated("monitor") + values + connect("v.bool", "t.temp_monitor"),
                   "graph.toml:9:6: error: the block 't' has no input 'temp_monitor'\n"
                   "to = \"t.temp_monitor\"\n     ^\nhelp: did you mean 'temp_monitor_in'?\n"
                   "graph.toml: 1 error\n");
    expect_mistake(terminated("monitor") + values + connect("v.bool", "t.x"),
                   "graph.toml:9:6: error: the block 't' has no input 'x'\nto = \"t.x\"\n     ^\n"
                   "help: it has: 'own', 'temp_monitor_in'\ngraph.toml: 1 error\n");
}

TEST_F(TerminatedInputs, AreInputsAndNoOutputs) {
    expect_mistake(terminated("monitor", connect("t.temp_monitor_in", "t.temp_monitor_in")),
                   "graph.toml:6:8: error: 't.temp_monitor_in' is an input, not an output\n"
                   "from = \"t.temp_monitor_in\"\n       ^\ngraph.toml: 1 error\n");
}

TEST_F(TerminatedInputs, TakeTheirOwnDatatypeOnly) {
    expect_mistake(
        terminated("monitor") + values + connect("v.double", "t.temp_monitor_in"),
        "graph.toml:9:6: error: 't.temp_monitor_in' takes bool, but 'v.double' gives double\n"
        "to = \"t.temp_monitor_in\"\n     ^\ngraph.toml: 1 error\n");
}

TEST_F(TerminatedInputs, TakeOneConnectionOnly) {
    const std::string connection = connect("v.bool", "t.temp_monitor_in");
    expect_mistake(terminated("monitor") + values + connection + connection,
                   "graph.toml:12:6: error: 't.temp_monitor_in' is connected already, at "
                   "graph.toml:9:6\nto = \"t.temp_monitor_in\"\n     ^\ngraph.toml: 1 error\n");
}

TEST_F(TerminatedInputs, ThatAreWrongAreMistakesAtTheBlocksTable) {
    const std::string place =
        "graph.toml:2:9: error: the setup of block 't' (Terminated) gives a wrong setting: ";
    const std::string quote = "[blocks.t]\n        ^\ngraph.toml: 1 error\n";
    expect_mistake(
        terminated("default of another type"),
        place + "the key 'termination_cfg.ok_def' must be a bool, not the integer 1\n" + quote);
    expect_mistake(terminated("more names than types"),
                   place +
                       "'termination_cfg.inports' has 2 names, but 'termination_cfg.types' has 1 "
                       "type\n" +
                       quote);
}

const std::string no_default =
    "graph.toml:2:9: warning: the setup of block 't' (Terminated) gives an incomplete setting: "
    "'termination_cfg.level_def' is missing, so the input 'level' starts with 0.0\n"
    "[blocks.t]\n        ^\ngraph.toml: 1 warning\n";

TEST_F(TerminatedInputs, WithoutDefaultAreAWarning) {
    EXPECT_TRUE(check(probes(terminated("no default"))).err.starts_with(no_default));
    EXPECT_EQ(check(probes(terminated("no default")), {"--deny-warnings"}).code, 78);
    const Ended ended = run(probes(terminated("no default")), {"--for", "0.05"});
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, no_default);
}

TEST_F(TerminatedInputs, OfABlockThatNeedsABusAreCheckedWhenItIsThere) {
    const std::string needs_a_bus = "needs_a_bus = true\n";
    const Ended warned = run(probes(terminated("no default", needs_a_bus)), {"--for", "0.05"});
    EXPECT_EQ(warned.code, 0);
    EXPECT_EQ(warned.err, no_default);
    const Ended wrong = run(probes(terminated("default of another type", needs_a_bus)));
    EXPECT_EQ(wrong.code, 78);
    EXPECT_EQ(wrong.err,
              "graph.toml:2:9: error: the setup of block 't' (Terminated) gives a wrong setting: "
              "the key 'termination_cfg.ok_def' must be a bool, not the integer 1\n"
              "[blocks.t]\n        ^\ngraph.toml: 1 error\n");
    EXPECT_EQ(lines_with(wrong.out, "\"ready\""), "");
}

TEST_F(TerminatedInputs, FollowNoMistakeThatIsReportedAlready) {
    // The block takes the name of its input from a key that is not there.
    expect_mistake("[blocks.t]\ntype = \"Terminated\"\n",
                   "graph.toml:2:9: error: block 't' (Terminated): the required key 'settings' (a "
                   "string) is missing\n[blocks.t]\n        ^\ngraph.toml: 1 error\n");
}

}  // namespace
}  // namespace test
