#include <sys/stat.h>

#include <csignal>
#include <thread>

#include "tests/integration/host/bus_listener.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

using Clock = std::chrono::steady_clock;

/// A block that does not come back from one of its operations.
class HangingBlock : public HostTest {
  protected:
    static std::string stubborn(const std::string& settings) {
        return probes("[blocks.b]\ntype = \"Stubborn\"\n" + settings);
    }
};

/// The operation, and what it is called in messages.
struct Operation {
    std::string key;
    std::string phase;
};

class HangingOperation : public HangingBlock, public testing::WithParamInterface<Operation> {};

TEST_P(HangingOperation, IsNamedASecondAfterTheFirstSignalAndTheSecondEndsTheProcess) {
    for (const int last : {SIGINT, SIGTERM}) {
        Process host(run_command(stubborn("in = \"" + GetParam().key + "\"\n"), {"--bus", bus()}));
        const bool at_the_end = GetParam().key == "stop" || GetParam().key == "destructor";
        const bool when_told = GetParam().key == "reconfigure";
        if (at_the_end || when_told) {
            ASSERT_TRUE(host.wait_for_text("\"ready\""));
        }
        if (when_told) {
            folder().write("graph.toml", stubborn("in = \"reconfigure\"\nlevel = 1\n"));
            host.send_signal(SIGHUP);
        }
        if (!at_the_end) {
            ASSERT_TRUE(host.wait_for_text("b: hangs in " + GetParam().key));
        }
        const auto begin = Clock::now();
        host.send_signal(SIGTERM);
        ASSERT_TRUE(host.wait_for_error_text("fenwa: waits for block 'b' in " + GetParam().phase +
                                             "; a further SIGINT or SIGTERM ends the process"));
        EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(950));
        EXPECT_LT(Clock::now() - begin, std::chrono::seconds(4));
        host.send_signal(last);
        const Ended ended = host.wait();
        EXPECT_EQ(ended.signal, last);
        EXPECT_EQ(lines_with(ended.out, "\"exit\""), "");
    }
}

INSTANTIATE_TEST_SUITE_P(Every, HangingOperation,
                         testing::Values(Operation{"constructor", "its constructor"},
                                         Operation{"setup", "setup"}, Operation{"start", "start"},
                                         Operation{"run", "run"},
                                         Operation{"reconfigure", "reconfigure"},
                                         Operation{"callback", "a callback of the bus"},
                                         Operation{"stop", "stop"},
                                         Operation{"destructor", "its destructor"}),
                         [](const auto& each) { return each.param.key; });

TEST_F(HangingBlock, IsStoppedInOrderWhenItComesBackAfterTheFirstSignal) {
    Process host(run_command(stubborn("in = \"run\"\ndoes = \"sleeps\"\nms = 2000\n"
                                      "[blocks.p]\ntype = \"Probe\"\n"),
                             {"--bus", bus()}));
    ASSERT_TRUE(host.wait_for_text("b: sleeps in run"));
    host.send_signal(SIGINT);
    const Ended ended = host.wait();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err,
              "fenwa: waits for block 'b' in run; a further SIGINT or SIGTERM ends the process at "
              "once\n");
    EXPECT_TRUE(messages(ended.out).ends_with("p: stop\np: destructor\n")) << ended.out;
}

TEST_F(HangingBlock, IsNamedOnceWithoutASignalToo) {
    Process host(
        run_command(stubborn("in = \"run\"\ndoes = \"sleeps\"\nms = 11000\n"), {"--bus", bus()}));
    ASSERT_TRUE(host.wait_for_text("b: sleeps in run"));
    const auto begin = Clock::now();
    ASSERT_TRUE(host.wait_for_error_text("fenwa: has waited 5 s for block 'b' in run"));
    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(4800));
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(8));
    std::this_thread::sleep_until(begin + std::chrono::milliseconds(11500));
    const Ended ended = host.terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "fenwa: has waited 5 s for block 'b' in run\n");
}

TEST_F(HangingBlock, IsNamedWhenTheTimeIsOverWhichCountsAsTheFirstSignal) {
    Process host(run_command(stubborn("in = \"run\"\n"), {"--bus", bus(), "--for", "0.2"}));
    ASSERT_TRUE(host.wait_for_text("b: hangs in run"));
    const auto begin = Clock::now();
    ASSERT_TRUE(host.wait_for_error_text("fenwa: waits for block 'b' in run; a further SIGINT"));
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(4)) << "those of a start are longer";
    host.send_signal(SIGINT);
    EXPECT_EQ(host.wait().signal, SIGINT);
}

TEST_F(HangingBlock, InTheStartHoldsUpTheTimeFor5SecondsOnly) {
    Process host(run_command(stubborn("in = \"setup\"\n"), {"--bus", bus(), "--for", "0.2"}));
    ASSERT_TRUE(host.wait_for_text("b: hangs in setup"));
    const auto begin = Clock::now();
    ASSERT_TRUE(host.wait_for_error_text("fenwa: waits for block 'b' in setup; a further SIGINT"));
    EXPECT_GE(Clock::now() - begin, std::chrono::seconds(4));
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(10));
    host.send_signal(SIGINT);
    EXPECT_EQ(host.wait().signal, SIGINT);
}

TEST_F(HangingBlock, IsLeftTimeByTwoSignalsThatComeTogether) {
    // As timeout(1) sends them.
    Process host(
        run_command(stubborn("in = \"run\"\ndoes = \"sleeps\"\nms = 700\n"), {"--bus", bus()}));
    ASSERT_TRUE(host.wait_for_text("b: sleeps in run"));
    host.send_signal(SIGTERM);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    host.send_signal(SIGTERM);
    EXPECT_EQ(host.wait().code, 0);
}

TEST_F(HangingBlock, ThatCallsASilentServiceIsNamedAndCanBeEnded) {
    BusListener service(bus());
    service.own("com.example.Silent");
    Process host(
        run_command(probes("[blocks.c]\ntype = \"Caller\"\ndestination = \"com.example.Silent\"\n"),
                    {"--bus", bus()}));
    ASSERT_TRUE(host.wait_for_text("c: asks"));
    host.send_signal(SIGINT);
    ASSERT_TRUE(host.wait_for_error_text("fenwa: waits for block 'c' in run"));
    host.send_signal(SIGINT);
    EXPECT_EQ(host.wait().signal, SIGINT);
}

TEST_F(HangingBlock, WhosePlugInDoesNotComeBackInTheCheckIsEndedByTheFirstSignal) {
    Process host(run_command("plugins = [\"libentry-hangs.so\"]\n[blocks.b]\ntype = \"Early\"\n",
                             {"--bus", bus()}));
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    host.send_signal(SIGINT);
    EXPECT_EQ(host.wait().signal, SIGINT);
}

TEST_F(HangingBlock, InACallbackOfWhichNobodyKnowsWhoseItIsCanBeEnded) {
    Process host(run_command(stubborn("in = \"unnamed\"\n"), {"--bus", bus()}));
    ASSERT_TRUE(host.wait_for_text("b: hangs in unnamed"));
    host.send_signal(SIGINT);
    ASSERT_TRUE(host.wait_for_error_text("fenwa: waits for a callback; a further SIGINT"));
    host.send_signal(SIGINT);
    EXPECT_EQ(host.wait().signal, SIGINT);
}

TEST_F(HangingBlock, IsNotWhatAHostWaitsForThatReadsItsGraphFromAPipe) {
    const std::string fifo = (folder().path() / "graph.toml").string();
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    Process host({FENWA_PROGRAM, "run", fifo});
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    host.send_signal(SIGINT);
    EXPECT_EQ(host.wait().signal, SIGINT);
}

}  // namespace
}  // namespace test
