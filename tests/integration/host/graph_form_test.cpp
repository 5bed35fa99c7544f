// Graphs that cannot be a file in tests/graphs/host: files that cannot be read, bytes, sizes,
// options.
#include <sys/stat.h>

#include <chrono>
#include <filesystem>

#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

using Clock = std::chrono::steady_clock;

std::string repeat(const std::string& text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i)
        all += text;
    return all;
}

const std::string timer = block("t", "Timer", "interval = 1");
const std::string timer_table = "[blocks.t]\ntype = \"Timer\"\ninterval = 1\n";
const std::string no_mistakes = "fenwa: graph.toml: no mistakes (1 block, 0 connections)\n";

/// Graphs that are written byte for byte.
class GraphForm : public HostTest {
  protected:
    Ended check_bytes(const std::string& bytes) const {
        return without_folder(fenwa({"check", folder().write("graph.toml", bytes)}));
    }
};

TEST_F(GraphForm, FileThatCannotBeReadIsNamedWithTheReason) {
    folder().write("file", "");
    // Reading a process's memory at address 0 gives EIO, for the superuser too.
    const std::map<std::string, std::string> reasons{
        {path("none.toml"), "No such file or directory"},
        {path("."), "Is a directory"},
        {path("file/graph.toml"), "Not a directory"},
        {"/proc/self/mem", "Input/output error"}};
    for (const auto& [file, reason] : reasons) {
        for (const char* command : {"run", "check", "graph"}) {
            const Ended ended = fenwa({command, file});
            expect_end(ended, 66, "fenwa: cannot read '" + file + "': " + reason + "\n");
            EXPECT_EQ(ended.out, "");
        }
    }
    EXPECT_EQ(without_times(fenwa({"run", "/no/graph", "--format", "json"}).out), exit_line(66));
}

TEST_F(GraphForm, FileIsNamedAsItWasTyped) {
    folder().write("graph.toml", "x");
    const std::string typed = folder().path().string() + "/./graph.toml";
    const Ended ended = fenwa({"check", typed});
    EXPECT_TRUE(ended.err.starts_with(typed + ":1:2: error: ")) << ended.err;
    EXPECT_TRUE(ended.err.ends_with("\n" + typed + ": 1 error\n")) << ended.err;
}

TEST_F(GraphForm, LineEndsAndByteOrderMarksAreNotQuotedOrCounted) {
    const std::string unknown =
        "graph.toml:1:20: error: unknown block type 'Timr'\nblocks.t = {type = \"Timr\"}\n"
        "                   ^\nhelp: did you mean 'Timer'?\ngraph.toml: 1 error\n";
    const std::string mark = "\xEF\xBB\xBF";
    const std::string graph = R"(blocks.t = {type = "Timr"})";
    for (const std::string& bytes : {graph, graph + "\n", graph + "\r\n", mark + graph + "\n"})
        expect_end(check_bytes(bytes), 78, unknown);
    for (const std::string& bytes : {timer.substr(0, timer.size() - 1), mark + timer})
        expect_end(check_bytes(bytes), 0, no_mistakes);
}

TEST_F(GraphForm, BytesThatAreNotTextAreAMistake) {
    const Ended ended = check_bytes("[blocks.t]\n# \xFF\n");
    EXPECT_EQ(ended.code, 78);
    EXPECT_TRUE(ended.err.starts_with("graph.toml:2:")) << ended.err;
    EXPECT_TRUE(ended.err.ends_with(": 1 error\n")) << ended.err;
    EXPECT_NE(ended.err.find(": error: Encountered invalid utf-8 sequence\n# \\xff\n"),
              std::string::npos)
        << ended.err;
    expect_end(check_bytes("# \x1b[2J\n"), 78,
               "graph.toml:1:3: error: Error while parsing comment: control characters other than "
               "TAB (U+0009) are explicitly prohibited in comments\n# \\x1b[2J\n  ^\n"
               "graph.toml: 1 error\n");
}

TEST_F(GraphForm, DeepNestingOfEveryKindIsRefused) {
    EXPECT_EQ(check_bytes(timer_table + repeat("a.", 15) + "a = 1\n").code, 0);
    for (const std::string& text :
         {"x = " + repeat("[", 100'000), "x = " + repeat("{a = ", 100'000),
          timer_table + "x = " + repeat("[", 200) + repeat("]", 200),
          repeat("a.", 100'000) + "a = 1", "[" + repeat("a.", 100'000) + "a]",
          "x = {" + repeat("a.", 100'000) + "a = 1}"}) {
        const Ended ended = check_bytes(text);
        EXPECT_EQ(ended.code, 78) << text.substr(0, 30);
        EXPECT_TRUE(ended.err.starts_with("graph.toml:")) << ended.err.substr(0, 200);
        EXPECT_LT(ended.err.size(), 800U);
    }
}

TEST_F(GraphForm, LongestKeyIsRead) {
    const auto table = [](std::size_t size) {
        return timer_table + "[blocks.t." + std::string(size, 'k') + "]\nfive = 1\n";
    };
    EXPECT_EQ(check_bytes(table(1019)).code, 0);
    expect_end(check_bytes(table(1020)), 78,
               "graph.toml:5:1: error: the key is longer than 1024 bytes, its tables included\n"
               "five = 1\n^\ngraph.toml: 1 error\n");
}

TEST_F(GraphForm, LargestFileIsReadAndALargerOneIsRefusedUnread) {
    const std::string largest = timer + "#" + std::string(1024 * 1024 - timer.size() - 1, '-');
    expect_end(check_bytes(largest), 0, no_mistakes);
    const std::string too_large =
        "graph.toml: error: the file is larger than 1048576 bytes (1 MiB)\ngraph.toml: 1 error\n";
    expect_end(check_bytes(largest + "-"), 78, too_large);
    std::filesystem::resize_file(path("graph.toml"), 50'000'000);
    const auto begin = Clock::now();
    expect_end(without_folder(fenwa({"check", path("graph.toml")})), 78, too_large);
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
}

TEST_F(GraphForm, PluginThatIsNotAFileIsNotOpened) {
    ASSERT_EQ(mkfifo(path("pipe.so").c_str(), 0600), 0);
    const auto begin = Clock::now();
    expect_end(check_bytes("plugins = [\"./pipe.so\"]\n" + timer), 78,
               "graph.toml:1:12: error: the plug-in './pipe.so' is not a regular file\n"
               "plugins = [\"./pipe.so\"]\n           ^\ngraph.toml: 1 error\n");
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(4));
}

TEST_F(GraphForm, AfterTooManyCrashesTheRestIsNotTried) {
    std::string graph = "plugins = [\"libmisbehaving.so\"]\n";
    for (char name = 'a'; name <= 't'; ++name)
        graph += block(std::string(1, name), "HalfBuilt", "then = \"aborts\"");
    const Ended ended = check(graph + "connections = [{from = \"t.out\", to = \"t.in\"}]");
    EXPECT_EQ(ended.code, 70);
    EXPECT_TRUE(ended.err.starts_with(
        "graph.toml: error: the rest of the graph is not checked, because too much of it has "
        "crashed or hung\n"))
        << ended.err;
    EXPECT_TRUE(ended.err.ends_with("\ngraph.toml: 17 errors\n")) << ended.err;
}

TEST_F(GraphForm, InterruptEndsACheckThatWaits) {
    for (const std::string type : {"Hanging", "Early"}) {
        const std::string plugin = type == "Early" ? "entry-hangs" : "misbehaving";
        const std::string graph = "plugins = [\"lib" + plugin + ".so\"]\n" + block("h", type);
        for (const Words& words : {run_command(graph), command("check", graph)}) {
            Process waiting(words);
            // Long enough to be at the block, and shorter than its time.
            std::this_thread::sleep_for(std::chrono::seconds(1));
            const auto begin = Clock::now();
            waiting.send_signal(SIGINT);
            EXPECT_EQ(waiting.wait().signal, SIGINT);
            EXPECT_LT(Clock::now() - begin, std::chrono::seconds(3));
        }
    }
}

TEST_F(GraphForm, ColoursOnlyWhenTheyAreWanted) {
    const std::string graph = "[blocks.t]\ntype = \"Timr\"\ndelay = 1\n[blocks.u]\n" +
                              std::string("type = \"Timer\"\ninterval = 1\ndelay = 1\n");
    const std::string coloured =
        "\x1b[1mgraph.toml:2:8: \x1b[0m\x1b[1;31merror: \x1b[0munknown block type 'Timr'\n"
        "type = \"Timr\"\n       \x1b[1;32m^\x1b[0m\n"
        "\x1b[1;36mhelp: \x1b[0mdid you mean 'Timer'?\n"
        "\x1b[1mgraph.toml:7:1: \x1b[0m\x1b[1;33mwarning: \x1b[0mTimer does not read the key "
        "'delay'\ndelay = 1\n\x1b[1;32m^\x1b[0m\ngraph.toml: 1 error, 1 warning\n";
    const std::string file = folder().write("graph.toml", graph);
    EXPECT_EQ(fenwa({"check", file}).err.find('\x1b'), std::string::npos);
    EXPECT_EQ(fenwa({"check", file, "--color=never"}).err.find('\x1b'), std::string::npos);
    for (const char* command : {"check", "graph"})
        EXPECT_EQ(without_folder(fenwa({command, file, "--color=always"})).err, coloured);
    EXPECT_EQ(without_folder(fenwa({"check", file, "--color", "always"}, {{"NO_COLOR", "1"}})).err,
              coloured);
}

}  // namespace
}  // namespace test
