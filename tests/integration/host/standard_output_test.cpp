#include "tests/integration/host/bus_listener.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

const std::string full = "fenwa: cannot write to stdout: No space left on device\n";

Ended in_shell(const std::string& script, const Words& command) {
    return run_program(Words{"sh", "-c", script, "sh"} + command);
}

/// A run whose stdout does not take all lines.
class StandardOutput : public HostTest {
  protected:
    StandardOutput() { listener_.listen_for_farewells(); }

    /// A shell command in which "$@" is the run of a graph that writes a line every few
    /// milliseconds and has two blocks that send farewells.
    Ended run_in_shell(const std::string& script, const Words& arguments = {}) const {
        return in_shell(script, run_command(R"(blocks.tick = {type = "Timer", interval = 10}
                                               blocks.count = {type = "Counter"}
                                               blocks.one = {type = "Leaver"}
                                               blocks.two = {type = "Leaver"}
                                               connections = [{from = "tick.out", to = "count.tick"}])",
                                            arguments));
    }
    /// Expects that the blocks have been stopped in order since the last time.
    void expect_farewells() {
        expected_.insert(expected_.end(),
                         {"two stop", "one stop", "two destructor", "one destructor"});
        EXPECT_EQ(listener_.farewells(expected_.size()), expected_);
    }

    BusListener listener_{bus()};
    Words expected_;
};

TEST_F(StandardOutput, ThatItsReaderClosesStopsTheBlocksInOrder) {
    for (const std::string format : {"json", "text"}) {
        const Ended ended =
            run_in_shell("{ \"$@\"; echo \"code $?\" >&2; } | head -1", {"--format", format});
        EXPECT_EQ(ended.err.substr(ended.err.find("fenwa: stdout")),
                  "fenwa: stdout was closed by its reader\ncode 0\n");
        EXPECT_EQ(count_lines(ended.out), 1) << ended.out;
        expect_farewells();
    }
}

TEST_F(StandardOutput, OnAFullDiskStopsTheBlocksInOrder) {
    expect_end(run_in_shell("exec \"$@\" > /dev/full"), 69, full);
    expect_farewells();
}

TEST_F(StandardOutput, ThatTheStarterClosedIsWrittenToNobody) {
    expect_end(run_in_shell("exec \"$@\" >&-", {"--for", "0.2"}));
    expect_farewells();
}

TEST_F(StandardOutput, ThatCannotBeWrittenEndsAStartTooAndKeepsAnotherCode) {
    // The first block logs in its constructor, so that the second one is not reached.
    expect_end(in_shell("exec \"$@\" > /dev/full",
                        run_command(block("one", "Probe") +
                                    block("two", "Probe", "throws_in = \"start\""))),
               69, full);
    const Ended wrong = in_shell("exec \"$@\" > /dev/full", run_command(block("t", "Timer")));
    EXPECT_EQ(wrong.code, 78);
    EXPECT_TRUE(wrong.err.ends_with("graph.toml: 1 error\n" + full)) << wrong.err;
}

/// Every command that needs no host, with the stream to which it prints.
class OneTimeOutput : public HostTest {
  protected:
    struct Printed {
        Words words;
        bool on_stderr = false;
    };

    [[nodiscard]] std::vector<Printed> commands() const {
        const std::string graph =
            folder().write("timer.toml", block("t", "Timer", "interval = 1000, spelt_wrong = 1"));
        return {{{"--help"}},
                {{"--version"}},
                {{"run", "--help"}},
                {{"inspect", FENWA_TEST_PLUGINS "/libprobe.so", "Talker"}},
                {{"inspect", FENWA_TEST_PLUGINS "/libprobe.so", "Talker", "--format", "json"}},
                {{"graph", graph}},
                {{"check", graph}, true}};
    }

    /// @param script in which "$@" is the command, and its output of either stream is stdout.
    static Ended print(const std::string& script, const Printed& command) {
        const char* streams = command.on_stderr ? "exec \"$@\" 2>&1 >&-" : "exec \"$@\" 2>&3";
        return in_shell(script, Words{"sh", "-c", streams, "sh", FENWA_PROGRAM} + command.words);
    }
};

TEST_F(OneTimeOutput, OnAFullDiskIs69) {
    for (const Printed& command : commands()) {
        const Ended ended = print("exec \"$@\" 3>&2 > /dev/full", command);
        EXPECT_EQ(ended.code, 69) << command.words.front();
        EXPECT_EQ(lines_with(ended.err, "fenwa: "), command.on_stderr ? "" : full);
    }
}

TEST_F(OneTimeOutput, ThatItsReaderClosesIs0) {
    for (const Printed& command : commands()) {
        const Ended ended = print("{ sleep 0.1; \"$@\"; echo \"code $?\" >&3; } 3>&2 | :", command);
        EXPECT_TRUE(ended.err.ends_with("code 0\n")) << command.words.front() << ended.err;
    }
}

TEST_F(OneTimeOutput, ThatCannotBeWrittenKeepsAnotherCode) {
    const std::string graph = folder().write("wrong.toml", block("t", "Timer"));
    EXPECT_EQ(print("exec \"$@\" 3>&2 > /dev/full", {{"check", graph}, true}).code, 78);
}

}  // namespace
}  // namespace test
