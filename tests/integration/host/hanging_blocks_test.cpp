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
    void start_stubborn(const std::string& in, const std::string& more = {},
                        const Words& arguments = {}, const std::string& sign = {}) {
        const std::string does = more.empty() ? "hangs" : "sleeps";
        start(stubborn(in, more), arguments, sign.empty() ? "b: " + does + " in " + in : sign);
    }
    static std::string stubborn(const std::string& in, const std::string& more) {
        return block("b", "Stubborn", "in = \"" + in + "\"" + more);
    }

    /// Expects this sentence from the host within this time, and that a second signal ends it.
    void expect_named(const std::string& what, std::chrono::milliseconds least,
                      std::chrono::milliseconds most, int last = SIGINT) {
        const auto begin = Clock::now();
        ASSERT_TRUE(host().wait_for_error_text("fenwa: waits for " + what +
                                               "; a further SIGINT or SIGTERM ends the process"));
        EXPECT_GE(Clock::now() - begin, least);
        EXPECT_LT(Clock::now() - begin, most);
        host().send_signal(last);
        const Ended ended = host().wait();
        EXPECT_EQ(ended.signal, last);
        EXPECT_EQ(lines_with(ended.out, "\"exit\""), "");
    }
};

constexpr std::chrono::milliseconds after_a_second{950};
constexpr std::chrono::seconds soon{4};

/// The operation, and its name in messages.
struct Operation : Case {
    std::string phase;
};

class HangingOperation : public HangingBlock, public testing::WithParamInterface<Operation> {};

TEST_P(HangingOperation, IsNamedASecondAfterTheFirstSignalAndTheSecondEndsTheProcess) {
    const std::string& key = GetParam().name;
    const bool is_last = key == "stop" || key == "destructor";
    const bool is_asked_for = key == "reconfigure";
    for (const int last : {SIGINT, SIGTERM}) {
        start_stubborn(key, "", {}, is_last || is_asked_for ? "\"ready\"" : "");
        if (is_asked_for) {
            write_graph(stubborn(key, ", level = 1"));
            host().send_signal(SIGHUP);
            ASSERT_TRUE(host().wait_for_text("b: hangs in reconfigure"));
        }
        host().send_signal(SIGTERM);
        expect_named(GetParam().phase, after_a_second, soon, last);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Every, HangingOperation,
    testing::Values(Operation{{"constructor"}, "block 'b' in its constructor"},
                    Operation{{"setup"}, "block 'b' in setup"},
                    Operation{{"start"}, "block 'b' in start"},
                    Operation{{"run"}, "block 'b' in run"},
                    Operation{{"reconfigure"}, "block 'b' in reconfigure"},
                    Operation{{"callback"}, "block 'b' in a callback of the bus"},
                    Operation{{"unnamed"}, "a callback"}, Operation{{"stop"}, "block 'b' in stop"},
                    Operation{{"destructor"}, "block 'b' in its destructor"}),
    name_of<Operation>);

TEST_F(HangingBlock, IsStoppedInOrderWhenItComesBackAfterTheFirstSignal) {
    start(stubborn("run", ", does = \"sleeps\", ms = 2000") + block("p", "Probe"), {},
          "b: sleeps in run");
    host().send_signal(SIGINT);
    const Ended ended = host().wait();
    expect_end(ended, 0,
               "fenwa: waits for block 'b' in run; a further SIGINT or SIGTERM ends the process at "
               "once\n");
    EXPECT_TRUE(messages(ended.out).ends_with("p: stop\np: destructor\n")) << ended.out;
}

TEST_F(HangingBlock, IsNamedOnceWithoutASignalToo) {
    start_stubborn("run", ", does = \"sleeps\", ms = 11000");
    const auto begin = Clock::now();
    ASSERT_TRUE(host().wait_for_error_text("fenwa: has waited 5 s for block 'b' in run"));
    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(4800));
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(8));
    std::this_thread::sleep_until(begin + std::chrono::milliseconds(11500));
    expect_end(host().terminate(), 0, "fenwa: has waited 5 s for block 'b' in run\n");
}

TEST_F(HangingBlock, IsNamedWhenTheTimeIsOverWhichCountsAsTheFirstSignal) {
    // The time of a start is longer.
    start_stubborn("run", "", {"--for", "0.2"});
    expect_named("block 'b' in run", {}, soon);
    start_stubborn("setup", "", {"--for", "0.2"});
    expect_named("block 'b' in setup", std::chrono::seconds(4), std::chrono::seconds(10));
}

TEST_F(HangingBlock, IsLeftTimeByTwoSignalsThatComeTogether) {
    // As timeout(1) sends them.
    start_stubborn("run", ", does = \"sleeps\", ms = 700");
    host().send_signal(SIGTERM);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    host().send_signal(SIGTERM);
    EXPECT_EQ(host().wait().code, 0);
}

TEST_F(HangingBlock, ThatCallsASilentServiceIsNamedAndCanBeEnded) {
    BusListener service(bus());
    service.own("com.example.Silent");
    start(block("c", "Caller", "destination = \"com.example.Silent\""), {}, "c: asks");
    host().send_signal(SIGINT);
    expect_named("block 'c' in run", {}, soon);
}

TEST_F(HangingBlock, IsNotWhatAHostWaitsForThatReadsItsGraphFromAPipe) {
    ASSERT_EQ(mkfifo(path("graph.toml").c_str(), 0600), 0);
    Process reading({FENWA_PROGRAM, "run", path("graph.toml")});
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    reading.send_signal(SIGINT);
    EXPECT_EQ(reading.wait().signal, SIGINT);
}

}  // namespace
}  // namespace test
