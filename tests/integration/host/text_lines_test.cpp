#include <regex>

#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

class TextLines : public HostTest {
  protected:
    Ended run_text(const std::string& graph, const Words& more = {},
                   const std::string& seconds = "0.1") const {
        Words arguments{"--format", "text", "--for", seconds};
        arguments.insert(arguments.end(), more.begin(), more.end());
        Ended ended = run(graph, arguments);
        // Two blanks, or a colour's code, stand between the time and the name.
        static const std::regex time("(^|\n|\x1b\\[2m) *[0-9]+\\.[0-9]{3}(?=  |\x1b)");
        ended.out = std::regex_replace(ended.out, time, "$1TIME");
        return ended;
    }
};

TEST_F(TextLines, ValuesGoToStdoutAndEverythingElseToStderr) {
    const Ended ended = run_text(
        probes("[blocks.p]\ntype = \"Probe\"\nsettings = true\n[blocks.s]\ntype = \"Source\"\n"
               "runs = 2\n[blocks.d]\ntype = \"Debugger\"\n"),
        {}, "0.4");  // so that the number of the repeated line is told before the end
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.out,
              "TIME  p setup truth = true\nTIME  p setup count = 3\nTIME  p setup ratio = 0.5\n"
              "TIME  p setup word = [\"one\"]\nTIME  p setup list = [\"a\",\"b\"]\n"
              "TIME  p setup none = []\nTIME  debug a_text = \"some text\"\n"
              "TIME  debug a_number = -5\nTIME  debug a_float = 36.599998474121094\n"
              "TIME  debug a_double = 36.6\nTIME  debug a_truth = true\n"
              "TIME  debug a_truth = true\nTIME  s.out = 1.0\nTIME  s.out = 2.0\n"
              "TIME  p.stopped = 1\n");
    EXPECT_EQ(std::regex_replace(ended.err, std::regex(R"(in 0\.\d s)"), "in SECONDS"),
              "info: p: constructor\ninfo: p: setup\ninfo: p: start\nfenwa: ready\n"
              "info: p: run\ninfo: s: run\ninfo: repeated 1 time in SECONDS: s: run\n"
              "info: p: stop\ninfo: p: destructor\nfenwa: stopped\n");
}

TEST_F(TextLines, LogLinesNameTheirLevelAndEndOnce) {
    EXPECT_EQ(run_text(probes("[blocks.t]\ntype = \"Talker\"\n")).err,
              "error: an error\nwarning: a warning\ninfo: an information\ninfo: ends its line\n"
              "info: two\\nlines\ninfo: quotes \" and \\ and tabs\\t\n"
              "info: a byte \\xff that is no text, and ü that is\ninfo: \n"
              "fenwa: ready\nfenwa: stopped\n");
}

/// What a line of text shows of "x\nfenwa: ready\x1b[2J", DEL, a control character of C1 and one
/// that turns the line around.
const std::string made_safe = "x\\nfenwa: ready\\x1b[2J\\u007f\\u009b\\u202e";

void expect_no_forged_line(const std::string& text) {
    EXPECT_EQ(text.find_first_of("\x1b\x7f"), std::string::npos) << text;
    EXPECT_EQ(text.find("\u009b"), std::string::npos) << text;
    EXPECT_EQ(text.find("\u202e"), std::string::npos) << text;
    EXPECT_EQ(lines_with("\n" + text, "\nfenwa: ready\\x1b"), "") << text;
}

TEST_F(TextLines, NamesAndKeysInTheGraphForgeNoLine) {
    const std::string hostile = R"("x\nfenwa: ready\u001b[2J\u007f\u009b\u202e")";
    const Ended ended = run_text("plugins = [\"libprobe.so\"]\n[blocks." + hostile +
                                 "]\ntype = \"Probe\"\nsettings = true\n" + hostile + " = 1\n");
    EXPECT_EQ(ended.code, 0);
    expect_no_forged_line(ended.out);
    expect_no_forged_line(ended.err);
    EXPECT_NE(ended.out.find("TIME  " + made_safe + " setup truth = true\n"), std::string::npos);
    EXPECT_NE(ended.out.find("TIME  " + made_safe + ".stopped = 1\n"), std::string::npos);
    EXPECT_NE(ended.err.find("info: " + made_safe + ": run\n"), std::string::npos);
    EXPECT_NE(ended.err.find(": warning: Probe does not read the key '" + made_safe + "'\n"),
              std::string::npos)
        << ended.err;
}

TEST_F(TextLines, WhatABlockThrowsForgesNoLine) {
    const Ended ended = run_text(probes("[blocks.f]\ntype = \"Forger\"\n"));
    EXPECT_EQ(ended.code, 70);
    EXPECT_EQ(ended.out, "TIME  debug " + made_safe + " = \"" +
                             R"(x\nfenwa: ready\u001b[2J\u007f\u009b\u202e)" + "\"\n");
    EXPECT_EQ(ended.err, "info: " + made_safe + "\n" +
                             "graph.toml:2:9: error: block 'f' (Forger) threw in start: " +
                             made_safe + "\n[blocks.f]\n        ^\ngraph.toml: 1 error\n");
}

TEST_F(TextLines, ThatAPluginLogsWhenItIsLoadedForgeNoLine) {
    const Ended ended =
        run_text("plugins = [\"libchatty.so\"]\n[blocks.t]\ntype = \"Timer\"\ninterval = 1000\n");
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "<4>" + made_safe + "\nfenwa: ready\nfenwa: stopped\n");
}

TEST_F(TextLines, ArgumentsForgeNoLine) {
    for (const Words& words :
         {Words{"run", "one", "--format", "x\nfenwa: ready\x1b[2J"},
          Words{"x\nfenwa: ready\x1b[2J"}, Words{"run", "/x\nfenwa: ready\x1b[2J"},
          Words{"check", "one", "x\nfenwa: ready\x1b[2J"},
          Words{"inspect", "x\nfenwa: ready\x1b[2J"},
          Words{"read", "a.b", "--bus", "x\nfenwa: ready\x1b[2J"}}) {
        Words command{FENWA_PROGRAM};
        command.insert(command.end(), words.begin(), words.end());
        const Ended ended = run_program(command);
        EXPECT_NE(ended.code, 0);
        expect_no_forged_line(ended.err);
        EXPECT_NE(ended.err.find("x\\nfenwa: ready\\x1b[2J"), std::string::npos) << ended.err;
    }
}

TEST_F(TextLines, ColoursOnlyWhenTheyAreWanted) {
    const std::string talker = probes("[blocks.t]\ntype = \"Talker\"\n");
    EXPECT_EQ(run_text(talker).err.find('\x1b'), std::string::npos);
    EXPECT_TRUE(run_text(talker, {"--color=always"})
                    .err.starts_with("\x1b[1;31merror: \x1b[0man error\n"
                                     "\x1b[1;33mwarning: \x1b[0ma warning\n"
                                     "\x1b[2minfo: \x1b[0man information\n"));
    const std::string source = probes("[blocks.s]\ntype = \"Source\"\nin_start = 1\n");
    EXPECT_EQ(run_text(source).out, "TIME  s.out = 1.0\n");
    EXPECT_EQ(run_text(source, {"--color=always"}).out,
              "\x1b[2mTIME\x1b[0m  s.out = \x1b[1m1.0\x1b[0m\n");
}

TEST_F(TextLines, FailureIsNotCalledAStop) {
    const Ended ended = run_text(probes("[blocks.p]\ntype = \"Probe\"\nthrows_in = \"start\"\n"));
    EXPECT_EQ(ended.code, 70);
    EXPECT_EQ(ended.err,
              "info: p: constructor\ninfo: p: setup\ninfo: p: start\n"
              "graph.toml:2:9: error: block 'p' (Probe) threw in start: thrown on purpose\n"
              "[blocks.p]\n        ^\ngraph.toml: 1 error\n"
              "info: p: destructor\n");
}

TEST_F(TextLines, LeaveTheTicksOfATimerOut) {
    const std::string timer = "[blocks.t]\ntype = \"Timer\"\ninterval = 10\n";
    EXPECT_EQ(run_text(timer).out, "");
    EXPECT_NE(run(timer, {"--format", "json", "--for", "0.1"}).out.find("\"timersource\""),
              std::string::npos);
}

TEST_F(TextLines, AreTheDefault) {
    const Ended ended =
        run_program({FENWA_PROGRAM, "run",
                     folder().write("graph.toml", "[blocks.t]\ntype = \"Timer\"\ninterval = 9\n"),
                     "--bus", bus(), "--for", "0.01"});
    EXPECT_EQ(ended.err, "fenwa: ready\nfenwa: stopped\n");
}

}  // namespace
}  // namespace test
