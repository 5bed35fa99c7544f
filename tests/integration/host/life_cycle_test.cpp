#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

class LifeCycle : public HostTest {};

TEST_F(LifeCycle, EachPhaseGoesOverAllBlocksAndTheStopGoesBackwards) {
    const Ended ended = run(block("zero", "Probe") + block("alpha", "Probe"), {"--for", "0.1"});
    expect_end(ended);
    EXPECT_EQ(without_times(ended.out),
              log_line("zero", "zero: constructor") + log_line("alpha", "alpha: constructor") +
                  log_line("zero", "zero: setup") + log_line("alpha", "alpha: setup") +
                  log_line("zero", "zero: start") + log_line("alpha", "alpha: start") + ready_line +
                  log_line("zero", "zero: run") + log_line("alpha", "alpha: run") +
                  log_line("alpha", "alpha: stop") + output_line("alpha", "stopped", "int", "1") +
                  log_line("zero", "zero: stop") + output_line("zero", "stopped", "int", "1") +
                  log_line("alpha", "alpha: destructor") + log_line("zero", "zero: destructor") +
                  exit_line(0));
}

TEST_F(LifeCycle, BlocksComeInTheOrderOfTheFileHoweverTheyAreSpelt) {
    const Ended ended = run(R"([blocks]
                               z.type = "Probe"
                               m = {type = "Probe"}
                               [blocks."b"]
                               type = "Probe"
                               [blocks.a]
                               type = "Probe")",
                            {"--for", "0.05"});
    EXPECT_EQ(lines_with(messages(ended.out), "constructor"),
              "z: constructor\nm: constructor\nb: constructor\na: constructor\n");
}

TEST_F(LifeCycle, SettingsOfTheSetupAreShownWhole) {
    const Ended ended =
        run(block("one", "Probe", "settings = true") + block("two", "Probe"), {"--for", "0.05"});
    EXPECT_EQ(lines_with(without_times(ended.out), "\"setup\""),
              R"({"event":"setup","time":0,"block":"one","settings":{"truth":true,"count":3,)"
              R"("ratio":0.5,"word":["one"],"list":["a","b"],"none":[]}})"
              "\n");
}

TEST_F(LifeCycle, PortsThatASetupAddsCanBeConnected) {
    const Ended ended = run(R"(blocks.probe = {type = "Probe", late_port = true}
                               blocks.sink = {type = "Sink", only = "double"}
                               connections = [{from = "probe.late", to = "sink.double"}])",
                            {"--for", "0.05"});
    expect_end(ended);
    EXPECT_EQ(lines_with(without_times(ended.out), "late"),
              output_line("probe", "late", "double", "1.5"));
    EXPECT_EQ(lines_with(messages(ended.out), "sink: run"), "sink: run double!=1.5\n");
}

/// Inputs that a block's setup has the host provide. Mistakes in them are in tests/graphs/host.
class TerminatedInputs : public HostTest {};

TEST_F(TerminatedInputs, AreShownWithAllOtherSettings) {
    const Ended ended = run(block("t", "Terminated", "settings = \"monitor\""), {"--for", "0.05"});
    expect_end(ended);
    EXPECT_EQ(without_times(ended.out),
              R"({"event":"setup","time":0,"block":"t","settings":{"temperature_ok":true,)"
              R"("termination_cfg.inports":["temp_monitor_in"],)"
              R"("termination_cfg.types":["/prefix/well-known.b/bool"],)"
              R"("termination_cfg.temp_monitor_in_def":true}})"
              "\n" +
                  ready_line + exit_line(0));
}

TEST_F(TerminatedInputs, TakeValuesAndDoNotRunTheBlockAsItsOwnInputsDo) {
    const std::string blocks = R"(blocks.t = {type = "Terminated", settings = "every type"}
                                  blocks.v = {type = "Values"}
                                  connections = [{from = "v.double", to = "t.level"},
                                                 {from = "v.bool", to = "t.ok"})";
    const Ended provided = run(blocks + "]", {"--for", "0.1"});
    expect_end(provided);
    EXPECT_EQ(messages(provided.out), "");
    const Ended own = run(blocks + R"(, {from = "v.double", to = "t.own"}])", {"--for", "0.1"});
    expect_end(own);
    EXPECT_TRUE(messages(own.out).starts_with("t: run, with the inputs own\n")) << own.out;
}

}  // namespace
}  // namespace test
