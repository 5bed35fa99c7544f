#include <csignal>

#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

/// A block that takes the host with it.
class Crash : public HostTest, public testing::WithParamInterface<std::string> {
  protected:
    Ended run_stubborn(const std::string& does) const {
        const std::string graph = "[blocks.b]\ntype = \"Stubborn\"\nin = \"" + GetParam() +
                                  "\"\ndoes = \"" + does + "\"\n";
        return run(probes(graph), {"--for", "0.2"});
    }

    static std::string phase() {
        return GetParam() == "constructor" || GetParam() == "destructor" ? "its " + GetParam()
                                                                         : GetParam();
    }
};

TEST_P(Crash, IsSaidOfTheBlockAndItsOperationBeforeTheHostDiesOfIt) {
    const Ended crashed = run_stubborn("crashes");
    EXPECT_EQ(crashed.signal, SIGSEGV);
    EXPECT_EQ(crashed.err, "fenwa: block 'b' crashed in " + phase() + " (SIGSEGV)\n");
    // What it logged before is not lost.
    EXPECT_NE(crashed.out.find("b: crashes in " + GetParam()), std::string::npos) << crashed.out;
    const Ended aborted = run_stubborn("aborts");
    EXPECT_EQ(aborted.signal, SIGABRT);
    EXPECT_EQ(aborted.err, "fenwa: block 'b' crashed in " + phase() + " (SIGABRT)\n");
}

TEST_P(Crash, IsNotWhatAnExitIsButItIsSaidOfTheBlockTooAndIsNoSuccess) {
    const Ended ended = run_stubborn("exits");
    EXPECT_EQ(ended.code, 70);
    EXPECT_EQ(ended.err, "fenwa: block 'b' called exit in " + phase() + "\n");
    EXPECT_NE(ended.out.find("b: exits in " + GetParam()), std::string::npos) << ended.out;
}

TEST_P(Crash, OfAThreadIsNoBlocksOperation) {
    const Ended ended = run_stubborn("a thread");
    EXPECT_EQ(ended.signal, SIGSEGV);
    EXPECT_EQ(ended.err, "fenwa: something outside of the blocks' operations crashed (SIGSEGV)\n");
}

INSTANTIATE_TEST_SUITE_P(Operations, Crash,
                         testing::Values("constructor", "setup", "start", "run", "stop",
                                         "destructor"),
                         [](const auto& each) { return each.param; });

}  // namespace
}  // namespace test
