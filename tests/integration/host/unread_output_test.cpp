
#include "tests/integration/host/datagram_socket.hpp"
#include "tests/integration/host/host_test.hpp"
#include "tests/support/json_printing.hpp"
#include "tests/support/pattern.hpp"

namespace test {
namespace {

using Clock = std::chrono::steady_clock;

const std::string waits =
    "fenwa: waits for the reader of 'stdout'; a further SIGINT or SIGTERM ends the process at "
    "once\n";

/// A block that writes more than anybody reads.
class UnreadOutput : public HostTest {
  protected:
    static std::string flood(int lines, const std::string& in = "start",
                             const std::string& does = "floods") {
        return block(
            "b", "Stubborn",
            "in = \"" + in + "\", does = \"" + does + "\", lines = " + std::to_string(lines));
    }

    /// Runs it until it is ready and nobody has read a line.
    Ended run_unread(int lines, const std::string& format) const {
        const DatagramSocket manager(path(format));
        Process host(run_command(flood(lines), {"--format", format}),
                     {{"NOTIFY_SOCKET", path(format)}});
        EXPECT_EQ(manager.receive(), "READY=1");
        const Ended ended = host.terminate();
        EXPECT_EQ(ended.code, 0);
        return ended;
    }

    /// Expects that every line has come or is counted among the dropped ones.
    static void expect_all(int lines, const std::string& text, const Pattern& dropped) {
        long sum = 0;
        long told = 0;
        for (const Groups& each : dropped.find_all(text)) {
            sum += std::stol(each[1]);
            ++told;
        }
        EXPECT_GT(sum, 0);
        EXPECT_GT(count_lines(text) - told, 1000);
        // With what is logged before the flood, and the events of the start and the end.
        EXPECT_EQ(count_lines(text) - told + sum, lines + 3);
    }

    /// Runs it in a shell command in which "$@" is the host.
    Ended run_in_shell(const std::string& script, const std::string& graph,
                       const Words& arguments) const {
        return run_program(Words{"sh", "-c", script, "sh"} + run_command(graph, arguments));
    }
};

TEST_F(UnreadOutput, StopsNoBlockAndItsLinesAreDroppedAndCounted) {
    const Ended json = run_unread(20000, "json");
    EXPECT_EQ(json.err, "");
    expect_all(20000, json.out,
               Pattern(R"re(\{"event":"dropped","time":[^,]*,"lines":(\d+)\}\n)re"));
    expect_all(20000, run_unread(20000, "text").err,
               Pattern("fenwa: dropped (\\d+) lines here, because nobody read them\n"));
}

TEST_F(UnreadOutput, IsNotGivenUpWhenTheReaderIsMerelySlow) {
    constexpr int lines = 3000;
    const Ended ended = run_in_shell(
        // Never 5 s without reading, but together more.
        R"({ "$@"; echo "code $?" >&2; } | { sleep 3; head -c 100000; sleep 3.5; cat; })",
        flood(lines, "stop"), {"--for", "0.1"});
    EXPECT_EQ(ended.err, waits + "code 0\n");
    EXPECT_EQ(lines_with(ended.out, "dropped"), "");
    EXPECT_EQ(messages(ended.out).find("b: floods in stop\nb: 0 "), 0U);
    EXPECT_NE(ended.out.find("b: " + std::to_string(lines - 1) + ' '), std::string::npos);
    EXPECT_NE(ended.out.find("\"exit\""), std::string::npos);
}

TEST_F(UnreadOutput, IsGivenUpAtTheEndWhenNobodyReads) {
    const auto begin = Clock::now();
    const Ended ended = run_in_shell(R"({ "$@"; echo "code $?" >&2; } | sleep 9)",
                                     flood(3000, "stop"), {"--for", "0.1"});
    EXPECT_EQ(ended.err, waits + "fenwa: gave up waiting for the reader of 'stdout'\ncode 0\n");
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(15));
}

TEST_F(UnreadOutput, KeepsItsOrderWhereBothStreamsLeadToTheSamePlace) {
    std::string blocks;
    std::string wanted;
    for (int i = 0; i < 50; ++i) {
        const std::string name = "p" + std::to_string(i);
        blocks += block(name, "Probe");
        // The last one is stopped first.
        wanted = name + ": stop\n" + name + ".stopped = 1\n" + wanted;
    }
    const Ended ended =
        run_in_shell(R"(exec "$@" 2>&1)", blocks, {"--format", "text", "--for", "0.1"});
    const std::string stops = lines_with(ended.out, "stop");
    EXPECT_EQ(Pattern("(^|\n) *[0-9.]+  (p[0-9]+: info: )?")
                  .replace(stops.substr(0, stops.find("fenwa: stopped")), "$1"),
              wanted);
}

TEST_F(UnreadOutput, ComesBeforeTheExceptionThatTheHostDiesOf) {
    const Ended ended = run_in_shell(
        // So slow that many lines wait when the C++ runtime writes its own.
        R"(exec "$@" 2>&1 >&- | { sleep 0.5; cat; })",
        flood(2000, "destructor", "floods and throws"), {"--format", "text", "--for", "0.1"});
    EXPECT_EQ(count_lines(ended.out, " b: info: "), 2001);
    const std::size_t last = ended.out.rfind(" b: info: ");
    EXPECT_EQ(ended.out.substr(ended.out.find('\n', last) + 1),
              "terminate called after throwing an instance of 'std::runtime_error'\n"
              "  what():  thrown on purpose\n"
              "fenwa: block 'b' crashed in its destructor (SIGABRT)\n");
}

TEST_F(UnreadOutput, WhoseReaderHasGoneEndsTheHostThoughItWritesNothing) {
    const Ended ended = run_in_shell(R"({ "$@"; echo "code $?" >&2; } | sleep 0.5)",
                                     block("b", "Stubborn", "in = \"\""), {"--format", "text"});
    EXPECT_EQ(ended.err,
              "fenwa: ready\nfenwa: stopped\nfenwa: stdout was closed by its reader\ncode 0\n");
}

}  // namespace
}  // namespace test
