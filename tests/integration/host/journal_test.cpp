#include <unistd.h>

#include <csignal>
#include <cstring>

#include "tests/integration/host/bus_listener.hpp"
#include "tests/integration/host/datagram_socket.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

using Fields = std::map<std::string, std::string>;

/// Runs the host where the journal's socket is one of the test's own: in a mount namespace in which
/// the folder of that socket is the test's. JOURNAL_STREAM is what a service manager sets.
class JournalTest : public HostTest {
  protected:
    Words in_namespace(const std::string& graph, const std::string& format = "text") const {
        const std::string script =
            "set -e; mount -t tmpfs tmpfs /run; mkdir -p /run/systemd/journal; "
            "mount --bind \"$0\" /run/systemd/journal; "
            "JOURNAL_STREAM=$(stat -L -c %d:%i /proc/self/fd/2); export JOURNAL_STREAM; "
            "exec \"$@\"";
        const Words user = geteuid() != 0 ? Words{"--user", "--map-root-user"} : Words{};
        return Words{"unshare"} + user +
               Words{"--mount", "sh", "-c", script, folder().path().string()} +
               run_command(graph, {"--format", format});
    }

    /// The fields of the next entry.
    Fields entry() const {
        Fields fields;
        const std::string text = journal_.receive();
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t end = text.find('\n', at);
            const std::size_t equals = text.find('=', at);
            if (equals < end) {
                fields[text.substr(at, equals - at)] = text.substr(equals + 1, end - equals - 1);
                at = end + 1;
                continue;
            }
            // A value with line ends has its size, in eight bytes, before it.
            std::uint64_t size_field = 0;
            std::memcpy(&size_field, text.data() + end + 1, sizeof size_field);
            const auto size = static_cast<std::size_t>(size_field);
            fields[text.substr(at, end - at)] = text.substr(end + 1 + sizeof size_field, size);
            at = end + 1 + sizeof size_field + size + 1;
        }
        return fields;
    }

    /// The next entry of a block, after those of the host itself.
    Fields block_entry() const {
        Fields next = entry();
        while (next.count("FENWA_BLOCK") == 0)
            next = entry();
        return next;
    }

    /// @param block empty for an entry without this field.
    Fields fields(const std::string& message, const std::string& block,
                  const std::string& priority = "6") const {
        Fields all{{"MESSAGE", message},
                   {"PRIORITY", priority},
                   {"SYSLOG_IDENTIFIER", "fenwa"},
                   {"FENWA_GRAPH", path("graph.toml")}};
        if (!block.empty())
            all["FENWA_BLOCK"] = block;
        return all;
    }

    void expect_entries(const std::string& block, const Words& texts) const {
        for (const std::string& text : texts)
            EXPECT_EQ(block_entry(), fields(text, block));
    }

    DatagramSocket journal_{path("socket")};
};

TEST_F(JournalTest, GetsEachLogLineWithItsFieldsInsteadOfStderr) {
    Process host(in_namespace(block("probe", "Probe") + block("talker", "Talker")));
    expect_entries("probe", {"probe: constructor", "probe: setup", "probe: start"});
    EXPECT_EQ(entry(), fields("an error", "talker", "3"));
    EXPECT_EQ(entry(), fields("a warning", "talker", "4"));
    expect_entries("talker", {"an information", "ends its line\n", "two\nlines"});
    for (int i = 0; i < 3; ++i)
        entry();  // further lines of the talker
    EXPECT_EQ(entry(), fields("ready", ""));
    expect_entries("probe", {"probe: run"});
    expect_end(host.terminate());
    expect_entries("probe", {"probe: stop", "probe: destructor"});
    EXPECT_EQ(entry(), fields("stopped", ""));
}

TEST_F(JournalTest, GetsTheReasonOfAFailureAsAnError) {
    Process host(in_namespace(
        "bus.names = [\"org.freedesktop.DBus\"]\n" + block("t", "Timer", "interval = 10"), "json"));
    EXPECT_EQ(host.wait().code, 69);
    Fields failure = entry();
    EXPECT_TRUE(failure["MESSAGE"].starts_with("cannot own the bus name 'org.freedesktop.DBus'"))
        << failure["MESSAGE"];
    failure["MESSAGE"].clear();
    EXPECT_EQ(failure, fields("", "", "3"));
}

TEST_F(JournalTest, GetsTheMistakesOfAGraphWithTheirPriority) {
    Process host(
        in_namespace("blocks.t = {type = \"Timer\", interval = 9, since = 1}\n"
                     "blocks.u = {type = \"Timr\"}"));
    EXPECT_EQ(host.wait().code, 78);
    EXPECT_EQ(entry(),
              fields(path("graph.toml") + ":2:43: warning: Timer does not read the key 'since'", "",
                     "4"));
    EXPECT_EQ(entry(), fields(path("graph.toml") +
                                  ":3:20: error: unknown block type 'Timr'; did you mean 'Timer'?",
                              "", "3"));
}

TEST_F(JournalTest, GetsTheNewsOfACrashWithItsBlock) {
    Process host(in_namespace(block("b", "Stubborn", R"(in = "start", does = "crashes")"), "json"));
    EXPECT_EQ(host.wait().signal, SIGSEGV);
    Fields news = entry();
    while (news["PRIORITY"] != "3")
        news = entry();
    EXPECT_EQ(news, fields("block 'b' crashed in start (SIGSEGV)", "b", "3"));
}

TEST_F(JournalTest, LineOfAnUnknownBlockHasNoField) {
    Process host(in_namespace(block("c", "Choir", "times = 1")));
    for (int voice = 0; voice < 4; ++voice) {
        Fields sung = entry();
        EXPECT_TRUE(sung["MESSAGE"].starts_with("voice ")) << sung["MESSAGE"];
        sung["MESSAGE"].clear();
        EXPECT_EQ(sung, fields("", ""));
    }
    EXPECT_EQ(host.terminate().code, 0);
}

TEST_F(JournalTest, LineOfAHandlerHasTheFieldsOfItsBlock) {
    Process host(in_namespace("bus.names = [\"com.example.Journal\"]\n" +
                              block("echo", "Exporter", "path = \"/com/example/Echo\"") +
                              block("probe", "Probe")));
    expect_entries("probe", {"probe: constructor", "probe: setup", "probe: start", "probe: run"});
    BusListener client(bus());
    EXPECT_EQ(client.echo("com.example.Journal", "/com/example/Echo", "you"), "echo heard you");
    EXPECT_EQ(entry(), fields("echo: was called", "echo"));
    EXPECT_EQ(host.terminate().code, 0);
}

TEST_F(JournalTest, GetsTheLinesNextToEventLinesToo) {
    RunningHost host(in_namespace(block("probe", "Probe"), "json"), "probe: run");
    const Ended ended = host.terminate();
    expect_end(ended);
    expect_entries("probe", {"probe: constructor"});
    EXPECT_EQ(lines_with(messages(ended.out), "constructor"), "probe: constructor\n");
}

TEST_F(JournalTest, GetsRepeatedLinesOnceAndThenWithTheirNumber) {
    for (const std::string format : {"text", "json"}) {
        Process host(in_namespace(
            block("b", "Stubborn", R"(in = "start", does = "repeats", lines = 20)"), format));
        expect_entries("b", {"b: repeats in start", "b: no answer",
                             "repeated 19 times in 0.0 s: b: no answer"});
        const Ended ended = host.terminate();
        EXPECT_EQ(ended.code, 0);
        EXPECT_EQ(count_lines(ended.out, "b: no answer"), format == "json" ? 20 : 0);
    }
}

TEST_F(JournalTest, IsLeftAloneWhenStderrLeadsElsewhere) {
    for (const char* stream : {"1:1", "", "nonsense"}) {
        const Ended ended =
            run(block("p", "Probe"), {"--format", "text", "--timestamps", "none", "--for", "0.05"},
                {{"JOURNAL_STREAM", stream}});
        EXPECT_EQ(lines_with(ended.err, "info: "),
                  "p: info: p: constructor\np: info: p: setup\np: info: p: start\n"
                  "p: info: p: run\np: info: p: stop\np: info: p: destructor\n")
            << stream;
    }
}

}  // namespace
}  // namespace test
