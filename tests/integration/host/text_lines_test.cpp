#include <algorithm>
#include <sstream>

#include "tests/integration/host/host_test.hpp"
#include "tests/support/pattern.hpp"

namespace test {
namespace {

class TextLines : public HostTest {
  protected:
    Ended run_text(const std::string& graph, const Words& more = {},
                   const std::string& seconds = "0.1") const {
        Ended ended = run(graph, Words{"--format", "text", "--for", seconds} + more);
        // Two blanks, or a colour's code, come between the time and the name.
        static const Pattern time("(^|\n|\x1b\\[2m) *[0-9]+\\.[0-9]{3}(?=  |\x1b)");
        for (std::string* const text : {&ended.out, &ended.err})
            *text = time.replace(*text, "$1TIME");
        return ended;
    }
};

TEST_F(TextLines, ValuesGoToStdoutAndEverythingElseToStderr) {
    const Ended ended =
        run_text(block("p", "Probe", "settings = true") + block("s", "Source", "runs = 2") +
                     block("d", "Debugger"),
                 {}, "0.4");  // the number of the repeated line comes before the end
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.out, R"(TIME  p setup truth = true
TIME  p setup count = 3
TIME  p setup ratio = 0.5
TIME  p setup word = ["one"]
TIME  p setup list = ["a","b"]
TIME  p setup none = []
TIME  debug a_text = "some text"
TIME  debug a_number = -5
TIME  debug a_float = 36.599998474121094
TIME  debug a_double = 36.6
TIME  debug a_truth = true
TIME  debug a_truth = true
TIME  s.out = 1.0
TIME  s.out = 2.0
TIME  p.stopped = 1
)");
    EXPECT_EQ(Pattern(R"(in 0\.\d s)").replace(ended.err, "in SECONDS"),
              R"(TIME  p: info: p: constructor
TIME  p: info: p: setup
TIME  p: info: p: start
fenwa: ready
TIME  p: info: p: run
TIME  s: info: s: run
TIME  s: info: repeated 1 time in SECONDS: s: run
TIME  p: info: p: stop
TIME  p: info: p: destructor
fenwa: stopped
)");
}

TEST_F(TextLines, LogLinesNameTheirBlockAndLevelAndAreColouredWhenThatIsWanted) {
    const std::string talker = block("t", "Talker");
    EXPECT_EQ(run_text(talker).err,
              R"(TIME  t: error: an error
TIME  t: warning: a warning
TIME  t: info: an information
TIME  t: info: ends its line
TIME  t: info: two\nlines
TIME  t: info: quotes " and \ and tabs\t
TIME  t: info: a byte \xff that is no text, and ü that is
TIME  t: info: 
fenwa: ready
fenwa: stopped
)");
    const std::string name = "\x1b[2mTIME\x1b[0m  \x1b[1;36mt:\x1b[0m ";
    EXPECT_TRUE(run_text(talker, {"--color=always"})
                    .err.starts_with(name + "\x1b[1;31merror:\x1b[0m an error\n" + name +
                                     "\x1b[1;33mwarning:\x1b[0m a warning\n" + name +
                                     "\x1b[2minfo:\x1b[0m an information\n"));
    const std::string source = block("s", "Source", "in_start = 1");
    EXPECT_EQ(run_text(source).out, "TIME  s.out = 1.0\n");
    EXPECT_EQ(run_text(source, {"--color=always"}).out,
              "\x1b[2mTIME\x1b[0m  s.out = \x1b[1m1.0\x1b[0m\n");
}

/// The form in a line of text of "x\nfenwa: ready\x1b[2J", DEL, a control character of C1 and one
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
    const Ended named = run_text(block(hostile, "Probe"));
    EXPECT_EQ(named.code, 78);
    expect_no_forged_line(named.out + named.err);
    EXPECT_NE(named.err.find("the block name '" + made_safe + "' holds a control character\n"),
              std::string::npos)
        << named.err;
    const Ended ended = run_text(block("p", "Probe", hostile + " = 1"));
    EXPECT_EQ(ended.code, 0);
    expect_no_forged_line(ended.out + ended.err);
    EXPECT_NE(ended.err.find(": warning: Probe does not read the key '" + made_safe + "'\n"),
              std::string::npos)
        << ended.err;
}

TEST_F(TextLines, WhatABlockThrowsForgesNoLine) {
    const Ended ended = run_text(block("f", "Forger"));
    EXPECT_EQ(ended.out, "TIME  debug " + made_safe + " = \"" +
                             R"(x\nfenwa: ready\u001b[2J\u007f\u009b\u202e)" + "\"\n");
    expect_end(ended, 70,
               "TIME  f: info: " + made_safe +
                   "\ngraph.toml:2:8: error: block 'f' (Forger) threw in start: " + made_safe +
                   "\n" + block("f", "Forger") + "       ^\ngraph.toml: 1 error\n");
}

TEST_F(TextLines, ThatAPluginLogsWhenItIsLoadedForgeNoLine) {
    expect_end(run_text("plugins = [\"libchatty.so\"]\n" + block("t", "Timer", "interval = 1000")),
               0, "<4>" + made_safe + "\nfenwa: ready\nfenwa: stopped\n");
}

TEST_F(TextLines, ArgumentsForgeNoLine) {
    const std::string hostile = "x\nfenwa: ready\x1b[2J";
    for (const Words& words : {Words{"run", "one", "--format", hostile}, Words{hostile},
                               Words{"run", "/" + hostile}, Words{"check", "one", hostile},
                               Words{"inspect", hostile}, Words{"read", "a.b", "--bus", hostile}}) {
        const Ended ended = fenwa(words);
        EXPECT_NE(ended.code, 0);
        expect_no_forged_line(ended.err);
        EXPECT_NE(ended.err.find("x\\nfenwa: ready\\x1b[2J"), std::string::npos) << ended.err;
    }
}

TEST_F(TextLines, FailureIsNotCalledAStop) {
    const std::string probe = block("p", "Probe", "throws_in = \"start\"");
    expect_end(run_text(probe), 70,
               "TIME  p: info: p: constructor\nTIME  p: info: p: setup\nTIME  p: info: p: start\n"
               "graph.toml:2:8: error: block 'p' (Probe) threw in start: thrown on purpose\n" +
                   probe + "       ^\ngraph.toml: 1 error\nTIME  p: info: p: destructor\n");
}

TEST_F(TextLines, LeaveTheTicksOfATimerOut) {
    const std::string timer = block("t", "Timer", "interval = 10");
    EXPECT_EQ(run_text(timer).out, "");
    EXPECT_NE(run(timer, {"--for", "0.1"}).out.find("\"timersource\""), std::string::npos);
}

TEST_F(TextLines, AreTheDefault) {
    const Words bus_and_time{"--bus", bus(), "--for", "0.01"};
    expect_end(run_program(command("run", block("t", "Timer", "interval = 9"), bus_and_time)), 0,
               "fenwa: ready\nfenwa: stopped\n");
}

/// A block that logs the same line again and again when it is started.
class RepeatedLog : public HostTest {
  protected:
    static std::string repeats(int lines, int milliseconds = 0) {
        return block("b", "Stubborn",
                     R"(in = "start", does = "repeats", lines = )" + std::to_string(lines) +
                         ", ms = " + std::to_string(milliseconds));
    }
};

TEST_F(RepeatedLog, OfOneBlockIsToldOnceAndThenWithItsNumber) {
    Process host(run_command(repeats(20), {"--format", "text", "--timestamps", "none"}));
    // While the host goes on and nobody logs anything.
    ASSERT_TRUE(host.wait_for_error_text("repeated"));
    expect_end(host.terminate(), 0,
               "b: info: b: repeats in start\nb: info: b: no answer\nfenwa: ready\n"
               "b: info: repeated 19 times in 0.0 s: b: no answer\nfenwa: stopped\n");
}

TEST_F(RepeatedLog, ThatGoesOnIsCountedEachSecondAndAtTheEndAndNoLineIsLost) {
    constexpr long lines = 550;
    Process host(run_command(repeats(lines, 4), {"--format", "text", "--for", "0.01"}));
    ASSERT_TRUE(host.wait_for_error_text("info: b: no answer"));
    EXPECT_EQ(host.err().find("repeated"), std::string::npos) << "the line itself comes at once";
    const Ended ended = host.wait();
    EXPECT_EQ(ended.code, 0);
    const long told = count_lines(ended.err, "info: b: no answer");
    long repeated = 0;
    double longest = 0.0;
    static const Pattern number("info: repeated ([0-9]+) times? in ([0-9.]+) s: b: no answer");
    for (const Groups& each : number.find_all(ended.err)) {
        repeated += std::stol(each[1]);
        longest = std::max(longest, std::stod(each[2]));
    }
    EXPECT_EQ(told + repeated, lines) << ended.err;
    EXPECT_LT(told, lines / 10) << "more than one where the machine stands still";
    EXPECT_GE(longest, 0.9);
    EXPECT_LT(longest, 1.5);
}

TEST_F(RepeatedLog, IsWholeInEventLines) {
    const std::string log = messages(run(repeats(20), {"--for", "0.3"}).out);
    EXPECT_EQ(count_lines(log, "b: no answer"), 20);
    EXPECT_EQ(count_lines(log), 21);
}

}  // namespace
}  // namespace test
