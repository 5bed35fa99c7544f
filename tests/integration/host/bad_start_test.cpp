#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

/// Files that cannot be read, for both commands.
class UnreadableGraph : public HostTest, public testing::WithParamInterface<std::string> {};

TEST_P(UnreadableGraph, MissingFile) {
    const std::string path = (folder().path() / "none.toml").string();
    const Ended ended = without_folder(run_program({FENWA_PROGRAM, GetParam(), path}));
    EXPECT_EQ(ended.code, 66);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.err, "fenwa: cannot read 'none.toml': No such file or directory\n");
}

TEST_P(UnreadableGraph, Folder) {
    const std::string path = folder().path().string();
    const Ended ended = run_program({FENWA_PROGRAM, GetParam(), path});
    EXPECT_EQ(ended.code, 66);
    EXPECT_EQ(ended.err, "fenwa: cannot read '" + path + "': Is a directory\n");
}

TEST_P(UnreadableGraph, FileUsedAsAFolder) {
    const std::string path = folder().write("file", "") + "/graph.toml";
    const Ended ended = without_folder(run_program({FENWA_PROGRAM, GetParam(), path}));
    EXPECT_EQ(ended.code, 66);
    EXPECT_EQ(ended.err, "fenwa: cannot read 'file/graph.toml': Not a directory\n");
}

TEST_P(UnreadableGraph, FileThatFailsToBeRead) {
    // Reading a process's memory at address 0 gives EIO, for the superuser too.
    const Ended ended = run_program({FENWA_PROGRAM, GetParam(), "/proc/self/mem"});
    EXPECT_EQ(ended.code, 66);
    EXPECT_EQ(ended.err, "fenwa: cannot read '/proc/self/mem': Input/output error\n");
}

INSTANTIATE_TEST_SUITE_P(Commands, UnreadableGraph, testing::Values("run", "check"),
                         [](const auto& each) { return each.param; });

class BadStart : public HostTest {};

TEST_F(BadStart, ExitEventTellsWhyTheRunEnded) {
    const Ended ended = run_program({FENWA_PROGRAM, "run", "/does/not/exist", "--format", "json"});
    EXPECT_EQ(without_times(ended.out), "{\"event\":\"exit\",\"time\":0,\"status\":66}\n");
}

TEST_F(BadStart, UnreadKeyIsAWarningOnceAndTheGraphRuns) {
    const Ended ended =
        run("[blocks.t]\ntype = \"Timer\"\ninterval = 1000\nintreval = 5\n", {"--for", "0.01"});
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err,
              "graph.toml:4:1: warning: Timer does not read the key 'intreval'\nintreval = 5\n^\n"
              "help: did you mean 'interval'?\ngraph.toml: 1 warning\n");
}

TEST_F(BadStart, WarningsAreNotRepeatedWhenTheStartFails) {
    // Without a bus this block's constructor ends early; the real one throws later.
    const Ended ended =
        run(probes("[blocks.p]\ntype = \"Probe\"\nthrows_in = \"start\"\n"
                   "throws = \"configuration\"\nunread = 1\n"));
    EXPECT_EQ(ended.code, 78);
    EXPECT_EQ(ended.err,
              "graph.toml:6:1: warning: Probe does not read the key 'unread'\nunread = 1\n^\n"
              "graph.toml: 1 warning\n"
              "graph.toml:5:1: error: block 'p' (Probe): the key 'throws' must be a word that is "
              "not there, not another one\nthrows = \"configuration\"\n^\n"
              "graph.toml: 1 error\n");
}

}  // namespace
}  // namespace test
