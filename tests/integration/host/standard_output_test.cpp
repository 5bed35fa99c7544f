#include <algorithm>

#include "tests/integration/host/bus_listener.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

/// What happens to a run whose stdout does not take what it writes.
class StandardOutput : public HostTest {
  protected:
    /// A shell command in which "$@" is the run of a graph that writes a line every few
    /// milliseconds and has two blocks that say farewell on the bus.
    Words in_shell(const std::string& script, const Words& arguments = {}) const {
        Words all{"--bus", bus()};
        all.insert(all.end(), arguments.begin(), arguments.end());
        const Words run = run_command(
            probes("[[connections]]\nfrom = \"tick.out\"\nto = \"count.tick\"\n"
                   "[blocks.tick]\ntype = \"Timer\"\ninterval = 10\n"
                   "[blocks.count]\ntype = \"Counter\"\n"
                   "[blocks.one]\ntype = \"Leaver\"\n[blocks.two]\ntype = \"Leaver\"\n"),
            all);
        Words words{"sh", "-c", script, "sh"};
        words.insert(words.end(), run.begin(), run.end());
        return words;
    }
};

const std::vector<std::string> farewells{"two stop", "one stop", "two destructor",
                                         "one destructor"};

TEST_F(StandardOutput, ThatItsReaderClosesStopsTheBlocksInOrder) {
    for (const std::string format : {"json", "text"}) {
        BusListener listener(bus());
        listener.listen_for_farewells();
        const Ended ended = run_program(
            in_shell("{ \"$@\"; echo \"code $?\" >&2; } | head -1", {"--format", format}));
        EXPECT_EQ(ended.err.substr(ended.err.find("fenwa: stdout")),
                  "fenwa: stdout was closed by its reader\ncode 0\n");
        EXPECT_EQ(std::count(ended.out.begin(), ended.out.end(), '\n'), 1) << ended.out;
        EXPECT_EQ(listener.farewells(4), farewells);
    }
}

TEST_F(StandardOutput, OnAFullDiskStopsTheBlocksInOrder) {
    BusListener listener(bus());
    listener.listen_for_farewells();
    const Ended ended = run_program(in_shell("exec \"$@\" > /dev/full"));
    EXPECT_EQ(ended.code, 69);
    EXPECT_EQ(ended.err, "fenwa: cannot write to stdout: No space left on device\n");
    EXPECT_EQ(listener.farewells(4), farewells);
}

TEST_F(StandardOutput, ThatCannotBeWrittenEndsAStartTooAndKeepsAnotherCode) {
    const Words run =
        run_command(probes("[blocks.one]\ntype = \"Probe\"\n[blocks.two]\ntype = \"Probe\"\n"
                           "throws_in = \"start\"\n"),
                    {"--bus", bus()});
    Words words{"sh", "-c", "exec \"$@\" > /dev/full", "sh"};
    words.insert(words.end(), run.begin(), run.end());
    // The first block logs in its constructor, so that the second one is not reached.
    const Ended stopped = run_program(words);
    EXPECT_EQ(stopped.code, 69);
    EXPECT_EQ(stopped.err, "fenwa: cannot write to stdout: No space left on device\n");
    const Words wrong = run_command("[blocks.t]\ntype = \"Timer\"\n");
    words.resize(4);
    words.insert(words.end(), wrong.begin(), wrong.end());
    const Ended misconfigured = run_program(words);
    EXPECT_EQ(misconfigured.code, 78);
    EXPECT_TRUE(misconfigured.err.ends_with(
        "graph.toml: 1 error\nfenwa: cannot write to stdout: No space left on device\n"))
        << misconfigured.err;
}

/// Every command that needs no host, with what it prints on.
class OneTimeOutput : public HostTest {
  protected:
    struct Printed {
        Words words;
        bool on_stderr = false;
    };

    [[nodiscard]] std::vector<Printed> commands() const {
        const std::string graph = folder().write(
            "timer.toml", "[blocks.t]\ntype = \"Timer\"\ninterval = 1000\nspelt_wrong = 1\n");
        return {{{"--help"}},
                {{"--version"}},
                {{"run", "--help"}},
                {{"inspect", FENWA_TEST_PLUGINS "/libprobe.so", "Talker"}},
                {{"inspect", FENWA_TEST_PLUGINS "/libprobe.so", "Talker", "--format", "json"}},
                {{"graph", graph}},
                {{"check", graph}, true}};
    }

    /// @param script in which "$@" is the command, and its output of either stream is stdout.
    static Ended in_shell(const std::string& script, const Printed& command) {
        Words words{"sh",
                    "-c",
                    script,
                    "sh",
                    "sh",
                    "-c",
                    command.on_stderr ? "exec \"$@\" 2>&1 >&-" : "exec \"$@\" 2>&3",
                    "sh",
                    FENWA_PROGRAM};
        words.insert(words.end(), command.words.begin(), command.words.end());
        return run_program(words);
    }
};

TEST_F(OneTimeOutput, OnAFullDiskIs69) {
    for (const Printed& command : commands()) {
        const Ended ended = in_shell("exec \"$@\" 3>&2 > /dev/full", command);
        EXPECT_EQ(ended.code, 69) << command.words.front();
        if (!command.on_stderr) {
            EXPECT_EQ(lines_with(ended.err, "fenwa: "),
                      lines_with(ended.err,
                                 "fenwa: cannot write to stdout: No space left on "
                                 "device"))
                << command.words.front() << ended.err;
        }
    }
}

TEST_F(OneTimeOutput, ThatItsReaderClosesIs0) {
    for (const Printed& command : commands()) {
        const Ended ended =
            in_shell("{ sleep 0.1; \"$@\"; echo \"code $?\" >&3; } 3>&2 | :", command);
        EXPECT_TRUE(ended.err.ends_with("code 0\n")) << command.words.front() << ended.err;
    }
}

TEST_F(OneTimeOutput, ThatCannotBeWrittenKeepsAnotherCode) {
    const std::string graph = folder().write("wrong.toml", "[blocks.t]\ntype = \"Timer\"\n");
    EXPECT_EQ(in_shell("exec \"$@\" 3>&2 > /dev/full", {{"check", graph}, true}).code, 78);
}

TEST_F(StandardOutput, ThatTheStarterClosedIsWrittenToNobody) {
    BusListener listener(bus());
    listener.listen_for_farewells();
    const Ended ended = run_program(in_shell("exec \"$@\" >&-", {"--for", "0.2"}));
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(listener.farewells(4), farewells);
}

}  // namespace
}  // namespace test
