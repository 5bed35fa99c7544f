#include <chrono>
#include <filesystem>
#include <fstream>

#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

class GraphForm : public HostTest {
  protected:
    static std::string repeat(const std::string& text, int times) {
        std::string all;
        for (int i = 0; i < times; ++i)
            all += text;
        return all;
    }
};

const std::string no_mistakes = "fenwa: graph.toml: no mistakes (1 block, 0 connections)\n";

TEST_F(GraphForm, AllMistakesOfAFileAreReportedInItsOrder) {
    const Ended ended = check(R"(plugins = ["libprobe.so", "libprobee.so"]
pugins = 1

[[connections]]
from = "first.out"
to = "second.duoble"

[blocks.second]
type = "Sink"
onyl = "double"

[blocks.third]
type = "Sinc"

[blocks.first]
type = "Source"
runs = "three"
fires = 2.5

[[connections]]
from = "first.out"
to = "second.int"

[bus]
names = ["x"]
)");
    EXPECT_EQ(ended.code, 78);
    EXPECT_EQ(ended.out, "");
    std::string said = ended.err;
    const std::size_t looked = said.find(" (looked in ");
    ASSERT_NE(looked, std::string::npos);
    said.erase(looked, said.find('\n', looked) - looked);
    // An unknown type may be the missing plug-in's, so that of those nothing is said.
    EXPECT_EQ(said, R"(graph.toml:1:27: error: no plug-in 'libprobee.so'
plugins = ["libprobe.so", "libprobee.so"]
                          ^
help: did you mean 'libprobe.so'?
graph.toml:2:1: error: unknown key 'pugins' in the graph
pugins = 1
^
help: did you mean 'plugins'?
graph.toml:6:6: error: the block 'second' has no input 'duoble'
to = "second.duoble"
     ^
help: did you mean 'double'?
graph.toml:10:1: warning: Sink does not read the key 'onyl'
onyl = "double"
^
help: did you mean 'only'?
graph.toml:17:1: error: block 'first' (Source): the key 'runs' must be an int, not the string "three"
runs = "three"
^
graph.toml:18:1: error: block 'first' (Source): the key 'fires' must be an int, not a float
fires = 2.5
^
graph.toml:22:6: error: 'second.int' takes int, but 'first.out' gives double
to = "second.int"
     ^
graph.toml:25:10: error: 'x' is not a valid well-known bus name
names = ["x"]
         ^
graph.toml: 7 errors, 1 warning
)");
}

TEST_F(GraphForm, FileIsNamedAsItWasTyped) {
    const std::string path = folder().write("graph.toml", "x");
    const std::string typed = folder().path().string() + "/./graph.toml";
    const Ended ended = run_program({FENWA_PROGRAM, "check", typed});
    EXPECT_TRUE(ended.err.starts_with(typed + ":1:2: error: ")) << ended.err;
    EXPECT_TRUE(ended.err.ends_with("\n" + typed + ": 1 error\n")) << ended.err;
}

TEST_F(GraphForm, LineEndsOfOtherSystemsAreNotQuoted) {
    EXPECT_EQ(check("[blocks.t]\r\ntype = \"Timr\"\r\ninterval = 5\r\n").err,
              "graph.toml:2:8: error: unknown block type 'Timr'\ntype = \"Timr\"\n       ^\n"
              "help: did you mean 'Timer'?\ngraph.toml: 1 error\n");
}

TEST_F(GraphForm, CaretStandsBelowItsPlaceBehindTabs) {
    EXPECT_EQ(check("[blocks.t]\n\ttype\t=\t\"Timr\"\n").err,
              "graph.toml:2:9: error: unknown block type 'Timr'\n\ttype\t=\t\"Timr\"\n"
              "\t    \t \t^\nhelp: did you mean 'Timer'?\ngraph.toml: 1 error\n");
}

TEST_F(GraphForm, ColumnsAreCountedInCodePoints) {
    EXPECT_EQ(check("blocks = {\"Zürich ☂\" = {type = \"Timr\"}}\n").err,
              "graph.toml:1:32: error: unknown block type 'Timr'\n"
              "blocks = {\"Zürich ☂\" = {type = \"Timr\"}}\n"
              "                               ^\n"
              "help: did you mean 'Timer'?\ngraph.toml: 1 error\n");
}

TEST_F(GraphForm, LastLineNeedsNoEnd) {
    EXPECT_EQ(check("[blocks.t]\ntype = \"Timer\"\ninterval = true").err,
              "graph.toml:3:1: error: block 't' (Timer): the key 'interval' must be an int, not "
              "the boolean true\ninterval = true\n^\ngraph.toml: 1 error\n");
    EXPECT_EQ(check("[blocks.t]\ntype = \"Timer\"\ninterval = 1").err, no_mistakes);
}

TEST_F(GraphForm, ByteOrderMarkHasNoColumn) {
    EXPECT_EQ(check("\xEF\xBB\xBFplugins = [3]\n").err,
              "graph.toml:1:12: error: each of 'plugins' must be a string, not an integer\n"
              "plugins = [3]\n           ^\ngraph.toml: 1 error\n");
    EXPECT_EQ(check("\xEF\xBB\xBF[blocks.t]\ntype = \"Timer\"\ninterval = 1\n").err, no_mistakes);
}

TEST_F(GraphForm, BytesThatAreNoTextAreAMistake) {
    const Ended ended = check("[blocks.t]\n# \xFF\n");
    EXPECT_EQ(ended.code, 78);
    EXPECT_TRUE(ended.err.starts_with("graph.toml:2:")) << ended.err;
    EXPECT_TRUE(ended.err.ends_with(": 1 error\n")) << ended.err;
    EXPECT_NE(ended.err.find(": error: Encountered invalid utf-8 sequence\n# \\xff\n"),
              std::string::npos)
        << ended.err;
}

TEST_F(GraphForm, NamesOutOfTheFileDoNothingToATerminal) {
    EXPECT_EQ(check("[blocks.t]\ntype = \"\\u001b[2J\\nTimer\"\n").err,
              "graph.toml:2:8: error: unknown block type '\\x1b[2J\\nTimer'\n"
              "type = \"\\u001b[2J\\nTimer\"\n       ^\ngraph.toml: 1 error\n");
    EXPECT_EQ(check("# \x1b[2J\n").err,
              "graph.toml:1:3: error: Error while parsing comment: control characters other than "
              "TAB (U+0009) are explicitly prohibited in comments\n# \\x1b[2J\n  ^\n"
              "graph.toml: 1 error\n");
}

TEST_F(GraphForm, OfALongLineThePartAroundThePlaceIsQuoted) {
    const auto timers = [](char first, char last) {
        std::string all;
        for (char name = first; name <= last; ++name)
            all += std::string(1, name) + " = {type = \"Timer\", interval = 1}, ";
        return all;
    };
    EXPECT_EQ(check("blocks = {" + timers('a', 'f') + "x = {type = \"Timr\"}, " + timers('g', 'k') +
                    "y = {type = \"Timer\", interval = 1}}\n")
                  .err,
              "graph.toml:1:239: error: unknown block type 'Timr'\n"
              "… interval = 1}, " +
                  timers('e', 'f') + "x = {type = \"Timr\"}, " + timers('g', 'g') +
                  "h = {type = \"Ti…\n" + repeat(" ", 101) +
                  "^\nhelp: did you mean 'Timer'?\ngraph.toml: 1 error\n");
}

TEST_F(GraphForm, DottedKeysSubTablesAndQuotedKeysAreTheSame) {
    for (const char* spelling : {"label.text = \"x\"\n", "label = {text = \"x\"}\n",
                                 "\"label.text\" = \"x\"\n", "[blocks.s.label]\ntext = \"x\"\n"}) {
        const Ended ended =
            check(probes("[blocks.s]\ntype = \"Strict\"\ndivisor = 1\nflag = true\nlevel = 1\n") +
                  spelling);
        EXPECT_EQ(ended.code, 0) << spelling;
        EXPECT_EQ(ended.err, no_mistakes) << spelling;
    }
}

TEST_F(GraphForm, ListOfOneStringServesAsAString) {
    EXPECT_EQ(check(probes("[blocks.s]\ntype = \"Sink\"\nonly = [\"int\"]\n")).code, 0);
    EXPECT_EQ(check(probes("[blocks.s]\ntype = \"Sink\"\nonly = [\"int\", \"bool\"]\n")).code, 78);
}

TEST_F(GraphForm, BlockNamesMayHaveDots) {
    EXPECT_EQ(check(probes("[blocks.\"a.b\"]\ntype = \"Source\"\n[blocks.\"c.d\"]\n"
                           "type = \"Sink\"\n[[connections]]\nfrom = \"a.b.out\"\n"
                           "to = \"c.d.double\"\n"))
                  .err,
              "fenwa: graph.toml: no mistakes (2 blocks, 1 connection)\n");
}

TEST_F(GraphForm, DeepNestingOfEveryKindIsRefused) {
    const std::string timer = "[blocks.t]\ntype = \"Timer\"\ninterval = 1\n";
    EXPECT_EQ(check(timer + repeat("a.", 15) + "a = 1\n").code, 0);
    for (const std::string& text :
         {"x = " + repeat("[", 100'000), "x = " + repeat("{a = ", 100'000),
          timer + "x = " + repeat("[", 200) + repeat("]", 200), repeat("a.", 100'000) + "a = 1",
          "[" + repeat("a.", 100'000) + "a]", "x = {" + repeat("a.", 100'000) + "a = 1}"}) {
        const Ended ended = check(text);
        EXPECT_EQ(ended.code, 78) << text.substr(0, 30);
        EXPECT_TRUE(ended.err.starts_with("graph.toml:")) << ended.err.substr(0, 200);
        EXPECT_LT(ended.err.size(), 800U);
    }
}

TEST_F(GraphForm, LargestFileIsRead) {
    std::string graph = "[blocks.t]\ntype = \"Timer\"\ninterval = 1\n#";
    graph.resize(1024 * 1024, '-');
    EXPECT_EQ(check(graph).err, no_mistakes);
    const Ended ended = check(graph + "-");
    EXPECT_EQ(ended.code, 78);
    EXPECT_EQ(ended.err,
              "graph.toml: error: the file is larger than 1048576 bytes (1 MiB)\n"
              "graph.toml: 1 error\n");
}

TEST_F(GraphForm, HugeFileIsRefusedUnread) {
    const std::string path = folder().write("graph.toml", "[blocks.t]\n");
    std::filesystem::resize_file(path, 50'000'000);
    const auto begin = std::chrono::steady_clock::now();
    const Ended ended = without_folder(run_program({FENWA_PROGRAM, "check", path}));
    EXPECT_EQ(ended.code, 78);
    EXPECT_EQ(ended.err,
              "graph.toml: error: the file is larger than 1048576 bytes (1 MiB)\n"
              "graph.toml: 1 error\n");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

}  // namespace
}  // namespace test
