#include <chrono>

#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

class LifeCycle : public HostTest {};

std::string log(const std::string& message) {
    return R"({"event":"log","time":0,"level":4,"message":")" + message + "\"}\n";
}

std::string output(const std::string& block, const std::string& port, const std::string& type,
                   const std::string& value) {
    return R"({"event":"output","time":0,"block":")" + block + R"(","port":")" + port +
           R"(","type":")" + type + R"(","value":)" + value + "}\n";
}

const std::string ready = "{\"event\":\"ready\",\"time\":0}\n";
const std::string done = "{\"event\":\"exit\",\"time\":0,\"status\":0}\n";

TEST_F(LifeCycle, EachPhaseGoesOverAllBlocksAndTheStopGoesBackwards) {
    const Ended ended = run(probes("[blocks.zero]\ntype = \"Probe\"\n[blocks.alpha]\n"
                                   "type = \"Probe\"\n"),
                            {"--for", "0.1"});
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(without_times(ended.out),
              log("zero: constructor") + log("alpha: constructor") + log("zero: setup") +
                  log("alpha: setup") + log("zero: start") + log("alpha: start") + ready +
                  log("zero: run") + log("alpha: run") + log("alpha: stop") +
                  output("alpha", "stopped", "int", "1") + log("zero: stop") +
                  output("zero", "stopped", "int", "1") + log("alpha: destructor") +
                  log("zero: destructor") + done);
}

TEST_F(LifeCycle, BlocksStandInTheOrderOfTheFileHoweverTheyAreSpelt) {
    const Ended ended =
        run(probes("[blocks]\nz.type = \"Probe\"\nm = {type = \"Probe\"}\n[blocks.\"b\"]\n"
                   "type = \"Probe\"\n[blocks.a]\ntype = \"Probe\"\n"),
            {"--for", "0.05"});
    EXPECT_EQ(lines_with(messages(ended.out), "constructor"),
              "z: constructor\nm: constructor\nb: constructor\na: constructor\n");
}

TEST_F(LifeCycle, SettingsOfTheSetupAreShownWhole) {
    const Ended ended = run(probes("[blocks.one]\ntype = \"Probe\"\nsettings = true\n"
                                   "[blocks.two]\ntype = \"Probe\"\n"),
                            {"--for", "0.05"});
    EXPECT_EQ(lines_with(without_times(ended.out), "\"setup\""),
              R"({"event":"setup","time":0,"block":"one","settings":{"truth":true,"count":3,)"
              R"("ratio":0.5,"word":["one"],"list":["a","b"],"none":[]}})"
              "\n");
}

TEST_F(LifeCycle, PortsThatASetupAddsCanBeConnected) {
    const Ended ended =
        run(probes("[blocks.probe]\ntype = \"Probe\"\nlate_port = true\n[blocks.sink]\n"
                   "type = \"Sink\"\nonly = \"double\"\n[[connections]]\nfrom = \"probe.late\"\n"
                   "to = \"sink.double\"\n"),
            {"--for", "0.05"});
    EXPECT_EQ(ended.code, 0) << ended.err;
    EXPECT_EQ(lines_with(without_times(ended.out), "late"),
              output("probe", "late", "double", "1.5"));
    EXPECT_EQ(lines_with(messages(ended.out), "sink: run"), "sink: run double!=1.5\n");
}

TEST_F(LifeCycle, RunEndsAfterTheGivenTime) {
    const auto begin = std::chrono::steady_clock::now();
    const Ended ended = run("[blocks.t]\ntype = \"Timer\"\ninterval = 10000\n", {"--for", "0.5"});
    const auto took = std::chrono::steady_clock::now() - begin;
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(without_times(ended.out), ready + done);
    EXPECT_GE(took, std::chrono::milliseconds(500));
    EXPECT_LT(took, std::chrono::seconds(5));
}

}  // namespace
}  // namespace test
