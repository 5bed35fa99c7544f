#include <sys/stat.h>

#include "tests/integration/host/reload_scene.hpp"

namespace test {
namespace {

const std::string not_reloaded = "fenwa: graph.toml: not reloaded; the graph goes on as it was\n";

/// The graph that runs, and behind it what is added to it.
const std::string relay = "[blocks.r]\ntype = \"Relay\"\n";
const std::string wire = "[[connections]]\nfrom = \"a.level\"\nto = \"r.double\"\n";
const std::string before = settled("a", "level = 2\n") + settled("b", "") + relay;

struct CommandError {
    std::string what;
    std::string file;
    std::string errors;
};

void PrintTo(const CommandError& refusal, std::ostream* out) {
    *out << refusal.what;
}

class ReloadRefusals : public ReloadTest, public testing::WithParamInterface<CommandError> {};

/// Whatever is wrong, the change of a's level, which is not, is not made either.
const std::string changed = settled("a", "level = 3\n") + settled("b", "") + relay;

TEST_P(ReloadRefusals, LeaveEverythingAsItWas) {
    start(before);
    folder().write("graph.toml", GetParam().file);
    EXPECT_EQ(reload(), GetParam().errors + not_reloaded);
    EXPECT_EQ(reload(changed), "fenwa: graph.toml: reloaded; new settings for 'a'\n");
    ASSERT_TRUE(host().wait_for_text("a: run"));
    EXPECT_EQ(stop(), "a: 2 none 7 -> 3 none 7\na: 3 none 7 -> 3 none 7\na: run\n");
}

const std::string probe_line = "plugins = [\"libprobe.so\"]\n";

INSTANTIATE_TEST_SUITE_P(
    Files, ReloadRefusals,
    testing::Values(
        CommandError{"ABlockMore", probe_line + changed + settled("n", ""),
                     "graph.toml:9:9: error: the block 'n' has been added, which needs a restart\n"
                     "[blocks.n]\n        ^\ngraph.toml: 1 error\n"},
        CommandError{"ABlockLess", probe_line + settled("a", "level = 3\n") + relay,
                     "graph.toml: error: the block 'b' has been removed, which needs a restart\n"
                     "graph.toml: 1 error\n"},
        CommandError{
            "AnotherType",
            probe_line + settled("a", "level = 3\n") + "[blocks.b]\ntype = \"Sink\"\n" + relay,
            "graph.toml:6:8: error: the block 'b' changes type from Settled to Sink, which needs "
            "a restart\ntype = \"Sink\"\n       ^\ngraph.toml: 1 error\n"},
        CommandError{"AConnectionMore", probe_line + changed + wire,
                     "graph.toml:10:8: error: the connection from 'a.level' to 'r.double' has been "
                     "added, which needs a restart\nfrom = \"a.level\"\n       ^\n"
                     "graph.toml: 1 error\n"},
        CommandError{
            "APlugInMore", "plugins = [\"libprobe.so\", \"libother.so\"]\n" + changed,
            "graph.toml:1:27: error: the plug-in 'libother.so' has been added, which needs a "
            "restart\nplugins = [\"libprobe.so\", \"libother.so\"]\n"
            "                          ^\ngraph.toml: 1 error\n"},
        CommandError{
            "AnotherBus",
            probe_line + "[bus]\naddress = \"session\"\nnames = [\"com.example.A\"]\n" + changed,
            "graph.toml:3:11: error: the bus changes from 'system' to 'session', which needs a "
            "restart\n"
            "address = \"session\"\n          ^\n"
            "graph.toml:4:10: error: the bus name 'com.example.A' has been added, which needs "
            "a restart\nnames = [\"com.example.A\"]\n         ^\ngraph.toml: 2 errors\n"},
        CommandError{
            "AMistypedKey",
            probe_line + settled("a", "level = 3\n") + settled("b", "level = \"x\"\n") + relay,
            "graph.toml:7:1: error: block 'b' (Settled): the key 'level' must be a double, not "
            "the string \"x\"\nlevel = \"x\"\n^\ngraph.toml: 1 error\n"},
        CommandError{"NoToml", probe_line + changed + "[",
                     "graph.toml:9:2: error: Error while parsing table header: encountered "
                     "end-of-file\n[\n ^\ngraph.toml: 1 error\n"},
        CommandError{"NoBlocks", probe_line,
                     "graph.toml: error: the graph has no blocks\ngraph.toml: 1 error\n"},
        CommandError{
            "AMistypedKeyThatTheBlockReadsOnlyAtTimes",
            probe_line + settled("a", "level = 3\nhidden = \"x\"\n") + settled("b", "") + relay,
            "graph.toml:5:1: error: block 'a' (Settled): the key 'hidden' must be an int, not "
            "the string \"x\"\nhidden = \"x\"\n^\ngraph.toml: 1 error\n"},
        CommandError{
            "ABlockThatThrowsWhenItIsBuilt",
            probe_line + settled("a", "level = 3\nneeds_a_bus = true\n") + settled("b", "") + relay,
            "graph.toml:2:9: error: block 'a' (Settled) threw in its constructor: "
            "System.Error.ENOTCONN: Transport endpoint is not connected\n[blocks.a]\n        ^\n"
            "graph.toml: 1 error\n"}),
    [](const auto& instance) { return instance.param.what; });

class ReloadTrouble : public ReloadTest {};

TEST_F(ReloadTrouble, FileThatIsGoneChangesNothing) {
    start(before);
    std::filesystem::remove(folder().path() / "graph.toml");
    EXPECT_EQ(reload(),
              "fenwa: cannot read 'graph.toml': No such file or directory\n" + not_reloaded);
    EXPECT_EQ(stop(), "");
}

TEST_F(ReloadTrouble, WhatIsNoFileIsNotWaitedFor) {
    start(before);
    const std::filesystem::path file = folder().path() / "graph.toml";
    std::filesystem::remove(file);
    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
    EXPECT_EQ(reload(), "fenwa: cannot read 'graph.toml': not a regular file\n" + not_reloaded);
    std::filesystem::remove(file);
    std::filesystem::create_directory(file);
    EXPECT_EQ(reload(), "fenwa: cannot read 'graph.toml': Is a directory\n" + not_reloaded);
    EXPECT_EQ(stop(), "");
}

TEST_F(ReloadTrouble, ConnectionThatStandsThereTwiceNeedsARestart) {
    start(before + wire);
    EXPECT_EQ(reload(before + wire + wire),
              "graph.toml:10:8: error: the connection from 'a.level' to 'r.double' has been added, "
              "which needs a restart\nfrom = \"a.level\"\n       ^\n"
              "graph.toml:13:8: error: the connection from 'a.level' to 'r.double' has been added, "
              "which needs a restart\nfrom = \"a.level\"\n       ^\ngraph.toml: 2 errors\n" +
                  not_reloaded);
    EXPECT_EQ(stop(), "");
}

TEST_F(ReloadTrouble, DefaultThatIsNotKnownNeedsARestart) {
    const std::string bound = "needs_a_bus = true\n";
    start(settled("a", bound + "level = 2\n"));
    EXPECT_EQ(reload(settled("a", bound)),
              "graph.toml:2:9: error: block 'a' (Settled) cannot be built without a bus, so the "
              "default of 'level' is unknown; removing the key needs a restart\n[blocks.a]\n"
              "        ^\ngraph.toml: 1 error\n" +
                  not_reloaded);
    // Of a key that came later it is known.
    EXPECT_EQ(reload(settled("a", bound + "level = 2\nhidden = 9\n")),
              "fenwa: graph.toml: reloaded; new settings for 'a'\n");
    EXPECT_EQ(reload(settled("a", bound + "level = 2\n")),
              "fenwa: graph.toml: reloaded; new settings for 'a'\n");
    EXPECT_EQ(lines_with(stop(), "9 -> 2 none 7"), "a: 2 none 9 -> 2 none 7\n");
}

TEST_F(ReloadTrouble, ConnectionThatIsGoneNeedsARestart) {
    start(before + wire);
    EXPECT_EQ(reload(before),
              "graph.toml: error: the connection from 'a.level' to 'r.double' has been removed, "
              "which needs a restart\ngraph.toml: 1 error\n" +
                  not_reloaded);
    EXPECT_EQ(stop(), "");
}

class RefusingBlock : public ReloadTest, public testing::WithParamInterface<std::string> {};

TEST_P(RefusingBlock, HasTheOldSettingsAgainAndThoseBeforeItToo) {
    const std::string& level = GetParam();
    start(settled("a", "") + settled("b", "") + settled("c", ""));
    EXPECT_EQ(reload(settled("a", "level = 2\n") + settled("b", "level = " + level + "\n") +
                     settled("c", "level = 2\n")),
              "graph.toml:7:1: error: block 'b' (Settled): the key 'level' must be a double that "
              "this block likes, not a float\nlevel = " +
                  level + "\n^\ngraph.toml: 1 error\n" + not_reloaded);
    ASSERT_TRUE(host().wait_for_text("b: run"));
    const std::string second = level == "14" ? "b: 14 none 7 -> 14 none 7\n" : "";
    EXPECT_EQ(stop(), "a: 1 none 7 -> 2 none 7\na: 2 none 7 -> 2 none 7\nb: 1 none 7 -> " + level +
                          " none 7\n" + second +
                          "b: 1 none 7 -> 1 none 7\nb: 1 none 7 -> 1 none 7\n"
                          "a: 1 none 7 -> 1 none 7\na: 1 none 7 -> 1 none 7\na: run\nb: run\n");
}

INSTANTIATE_TEST_SUITE_P(AtOnceOrTheSecondTime, RefusingBlock, testing::Values("13", "14"));

TEST_F(ReloadTrouble, BlockThatThrowsEndsTheHost) {
    start(settled("a", "") + settled("b", ""));
    rewrite("\n\n" + settled("a", "level = 66\n") + settled("b", "level = 2\n"));
    host().send_signal(SIGHUP);
    const Ended ended = without_folder(host().wait());
    EXPECT_EQ(ended.code, 70);
    EXPECT_EQ(ended.err,
              "graph.toml:4:9: error: block 'a' (Settled) threw in reconfigure: thrown on purpose\n"
              "[blocks.a]\n        ^\ngraph.toml: 1 error\n");
    EXPECT_EQ(messages(ended.out), "a: 1 none 7 -> 66 none 7\n");
}

TEST_F(ReloadTrouble, BlockThatDoesNotTakeItsOldSettingsBackEndsTheHost) {
    start(settled("a", ""));
    rewrite(settled("a", "level = 67\n"));
    host().send_signal(SIGHUP);
    const Ended ended = without_folder(host().wait());
    EXPECT_EQ(ended.code, 70);
    EXPECT_EQ(ended.err,
              "graph.toml:2:9: error: block 'a' (Settled) refuses its previous settings: the key "
              "'level' must be a double that this block likes, not a float\n[blocks.a]\n        ^\n"
              "graph.toml: 1 error\n");
}

TEST_F(ReloadTrouble, LaterMistakesAreShownInTheFileAsItWasReadLast) {
    const std::string failing =
        "[blocks.p]\ntype = \"Probe\"\nthrows_in = \"stop\"\nthrows = \"configuration\"\n";
    start(settled("a", "") + failing);
    EXPECT_EQ(reload("# one\n# two\n" + settled("a", "level = 2\n") + failing),
              "fenwa: graph.toml: reloaded; new settings for 'a'\n");
    const Ended ended = without_folder(host().terminate());
    EXPECT_EQ(ended.code, 78);
    EXPECT_EQ(ended.err,
              "fenwa: graph.toml: reloaded; new settings for 'a'\n"
              "graph.toml:10:1: error: block 'p' (Probe): the key 'throws' must be a word that is "
              "not there, not another one\nthrows = \"configuration\"\n^\ngraph.toml: 1 error\n");
}

}  // namespace
}  // namespace test
