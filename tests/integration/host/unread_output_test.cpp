#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

#include "tests/integration/host/datagram_socket.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

using Clock = std::chrono::steady_clock;

const std::string waits =
    "fenwa: waits for the reader of 'stdout'; a further SIGINT or SIGTERM ends the process at "
    "once\n";

/// A block that writes more than anybody reads.
class UnreadOutput : public HostTest {
  protected:
    static std::string flood(int lines, const std::string& in = "start") {
        return probes("[blocks.b]\ntype = \"Stubborn\"\nin = \"" + in +
                      "\"\ndoes = \"floods\"\nlines = " + std::to_string(lines) + "\n");
    }

    /// Runs it in a shell command in which "$@" is the host.
    Ended run_in_shell(const std::string& script, const std::string& graph,
                       const Words& arguments = {}) const {
        Words all{"--bus", bus()};
        all.insert(all.end(), arguments.begin(), arguments.end());
        const Words host = run_command(graph, all);
        Words words{"sh", "-c", script, "sh"};
        words.insert(words.end(), host.begin(), host.end());
        return run_program(words);
    }
};

TEST_F(UnreadOutput, StopsNoBlockAndItsLinesAreDroppedAndCounted) {
    constexpr int lines = 20000;
    const std::string path = (folder().path() / "notify").string();
    const DatagramSocket manager(path);
    Process host(run_command(flood(lines), {"--bus", bus()}), {{"NOTIFY_SOCKET", path}});
    // Nobody has read a line by then.
    ASSERT_EQ(manager.receive(), "READY=1");
    const Ended ended = host.terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
    std::istringstream read(ended.out);
    long received = 0;
    long dropped = 0;
    for (std::string line; std::getline(read, line);) {
        const auto event = nlohmann::json::parse(line);
        if (event.at("event") == "dropped")
            dropped += event.at("lines").get<long>();
        else
            ++received;
    }
    EXPECT_GT(dropped, 0);
    EXPECT_GT(received, 1000);
    // With what is logged before the flood, and the events of the start and the end.
    EXPECT_EQ(received + dropped, lines + 3);
    EXPECT_EQ(
        lines_with(without_times(ended.out), "dropped").find(R"({"event":"dropped","time":0)"), 0U);
}

TEST_F(UnreadOutput, OnStderrStopsNoBlockEither) {
    constexpr int lines = 20000;
    const std::string path = (folder().path() / "notify").string();
    const DatagramSocket manager(path);
    Process host(run_command(flood(lines), {"--bus", bus(), "--format", "text"}),
                 {{"NOTIFY_SOCKET", path}});
    ASSERT_EQ(manager.receive(), "READY=1");
    const Ended ended = host.terminate();
    EXPECT_EQ(ended.code, 0);
    std::istringstream read(ended.err);
    long received = 0;
    long dropped = 0;
    const std::string before = "fenwa: dropped ";
    for (std::string line; std::getline(read, line);) {
        if (line.starts_with(before)) {
            dropped += std::stol(line.substr(before.size()));
            EXPECT_TRUE(line.ends_with(" lines here, because nobody read them")) << line;
        } else {
            ++received;
        }
    }
    EXPECT_GT(dropped, 0);
    EXPECT_EQ(received + dropped, lines + 3);
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
        blocks += "[blocks." + name + "]\ntype = \"Probe\"\n";
        // The last one is stopped first.
        wanted = name + ": stop\n" + name + ".stopped = 1\n" + wanted;
    }
    const Ended ended =
        run_in_shell(R"(exec "$@" 2>&1)", probes(blocks), {"--format", "text", "--for", "0.1"});
    const std::string stops = lines_with(ended.out, "stop");
    EXPECT_EQ(std::regex_replace(stops.substr(0, stops.find("fenwa: stopped")),
                                 std::regex("(^|\n)(info: | *[0-9.]+  )"), "$1"),
              wanted);
}

TEST_F(UnreadOutput, WhoseReaderHasGoneEndsTheHostThoughItWritesNothing) {
    const Ended ended =
        run_in_shell(R"({ "$@"; echo "code $?" >&2; } | sleep 0.5)",
                     probes("[blocks.b]\ntype = \"Stubborn\"\nin = \"\"\n"), {"--format", "text"});
    EXPECT_EQ(ended.err,
              "fenwa: ready\nfenwa: stopped\nfenwa: stdout was closed by its reader\ncode 0\n");
}

}  // namespace
}  // namespace test
