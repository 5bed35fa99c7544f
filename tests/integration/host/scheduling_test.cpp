#include <csignal>

#include "tests/integration/host/bus_listener.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

class Scheduling : public HostTest {
  protected:
    std::string run_messages(const std::string& graph) const {
        const Ended ended = run(probes(graph), {"--for", "0.2"});
        EXPECT_EQ(ended.code, 0) << ended.err;
        return messages(ended.out);
    }
};

TEST_F(Scheduling, SeveralFiresBeforeARunMakeOneRun) {
    EXPECT_EQ(run_messages("[blocks.s]\ntype = \"Source\"\nruns = 1\nfires = 5\n"), "s: run\n");
}

TEST_F(Scheduling, FireDuringARunMakesAnother) {
    EXPECT_EQ(run_messages("[blocks.s]\ntype = \"Source\"\nruns = 3\nfires = 5\n"),
              "s: run\ns: run\ns: run\n");
}

TEST_F(Scheduling, MarksTellWhichEventARunIsFor) {
    EXPECT_EQ(run_messages("[blocks.e]\ntype = \"Events\"\n"),
              "e: run first\ne: run second\ne: not dealt with\ne: dealt with\n");
}

TEST_F(Scheduling, ReadyBlocksRunOnceEachPerPassInTheOrderInWhichTheyBecameReady) {
    const auto source = [](const std::string& name) {
        return "[blocks." + name + "]\ntype = \"Source\"\nruns = 3\n";
    };
    EXPECT_EQ(run_messages(source("c") + source("a") + source("b")),
              "c: run\na: run\nb: run\nc: run\na: run\nb: run\nc: run\na: run\nb: run\n");
}

TEST_F(Scheduling, BlockThatFiresItselfForEverWithoutABrakeStarvesNobody) {
    Process host(run_command(
        probes("[host]\nrun_rate = 0\n[bus]\nnames = [\"com.example.Spinning\"]\n"
               "[blocks.spinner]\ntype = \"Spinner\"\n[blocks.tick]\ntype = \"Timer\"\n"
               "interval = 20\n[blocks.echo]\ntype = \"Exporter\"\npath = \"/com/example/Echo\"\n"
               "[blocks.sink]\ntype = \"Sink\"\nonly = \"tick\"\n"
               "[[connections]]\nfrom = \"tick.out\"\nto = \"sink.tick\"\n"),
        {"--bus", bus()}));
    EXPECT_TRUE(host.wait_for_text("spinner: spins"));
    EXPECT_TRUE(host.wait_for_text("sink: run tick!=5"));
    BusListener client(bus());
    EXPECT_EQ(client.echo("com.example.Spinning", "/com/example/Echo", "you"), "echo heard you");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(host.terminate().code, 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
}

TEST_F(Scheduling, FiresFromFourThreadsAreAllServed) {
    Process host(
        run_command(probes("[host]\nrun_rate = 0\n[blocks.t]\ntype = \"Threaded\"\ntimes = 2000\n"),
                    {"--bus", bus()}));
    EXPECT_TRUE(host.wait_for_text("t: 8000 fires served"));
    const Ended ended = host.terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(messages(ended.out), "t: 8000 fires served\n");
}

TEST_F(Scheduling, StopEndsABlocksThreads) {
    Process host(run_command(probes("[blocks.t]\ntype = \"Threaded\"\ntimes = 100000000\n"),
                             {"--bus", bus()}));
    EXPECT_TRUE(host.wait_for_text("\"ready\""));
    EXPECT_EQ(host.terminate().code, 0);
}

}  // namespace
}  // namespace test
