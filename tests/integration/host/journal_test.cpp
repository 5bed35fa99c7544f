#include <sys/types.h>
#include <unistd.h>

#include <algorithm>

#include "tests/integration/host/bus_listener.hpp"
#include "tests/integration/host/datagram_socket.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

/// Runs the host where the journal's socket is one of the test's own: in a mount namespace in which
/// the folder of that socket is the test's. JOURNAL_STREAM is what a service manager sets.
class JournalTest : public HostTest {
  protected:
    Words in_namespace(const std::string& graph, const std::string& format) const {
        const std::string script =
            "set -e; mount -t tmpfs tmpfs /run; mkdir -p /run/systemd/journal; "
            "mount --bind \"$0\" /run/systemd/journal; "
            "JOURNAL_STREAM=$(stat -L -c %d:%i /proc/self/fd/2); export JOURNAL_STREAM; "
            "exec \"$@\"";
        Words words{"unshare", "--mount"};
        if (geteuid() != 0)
            words = {"unshare", "--user", "--map-root-user", "--mount"};
        words.insert(words.end(), {"sh", "-c", script, folder().path().string()});
        const Words run = run_command(probes(graph), {"--bus", bus(), "--format", format});
        words.insert(words.end(), run.begin(), run.end());
        return words;
    }

    /// The fields of one entry as "NAME=VALUE" in alphabetical order, with the folder taken away.
    std::map<std::string, std::string> entry(const DatagramSocket& socket) const {
        std::map<std::string, std::string> fields;
        const std::string text = socket.receive();
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t end = text.find('\n', at);
            const std::size_t equals = text.find('=', at);
            if (equals < end) {
                fields[text.substr(at, equals - at)] = text.substr(equals + 1, end - equals - 1);
                at = end + 1;
                continue;
            }
            // A value with line ends has its size, in eight bytes, before it.
            std::uint64_t size = 0;
            std::memcpy(&size, text.data() + end + 1, sizeof size);
            fields[text.substr(at, end - at)] = text.substr(end + 1 + sizeof size, size);
            at = end + 1 + sizeof size + size + 1;
        }
        return fields;
    }

    /// The next entry of a block, after those of the host itself.
    std::map<std::string, std::string> block_entry(const DatagramSocket& socket) const {
        auto next = entry(socket);
        while (next.count("FENWA_BLOCK") == 0)
            next = entry(socket);
        return next;
    }

    std::string journal_socket() const { return (folder().path() / "socket").string(); }

    std::map<std::string, std::string> fields(const std::string& message,
                                              const std::string& priority,
                                              const std::string& block = {}) const {
        std::map<std::string, std::string> all{
            {"MESSAGE", message},
            {"PRIORITY", priority},
            {"SYSLOG_IDENTIFIER", "fenwa"},
            {"FENWA_GRAPH", (folder().path() / "graph.toml").string()}};
        if (!block.empty())
            all["FENWA_BLOCK"] = block;
        return all;
    }
};

TEST_F(JournalTest, GetsEachLogLineWithItsFieldsInsteadOfStderr) {
    const DatagramSocket journal(journal_socket());
    Process host(
        in_namespace("[blocks.probe]\ntype = \"Probe\"\n[blocks.talker]\n"
                     "type = \"Talker\"\n",
                     "text"));
    EXPECT_EQ(entry(journal), fields("probe: constructor", "6", "probe"));
    EXPECT_EQ(entry(journal), fields("probe: setup", "6", "probe"));
    EXPECT_EQ(entry(journal), fields("probe: start", "6", "probe"));
    EXPECT_EQ(entry(journal), fields("an error", "3", "talker"));
    EXPECT_EQ(entry(journal), fields("a warning", "4", "talker"));
    EXPECT_EQ(entry(journal), fields("an information", "6", "talker"));
    EXPECT_EQ(entry(journal), fields("ends its line\n", "6", "talker"));
    EXPECT_EQ(entry(journal), fields("two\nlines", "6", "talker"));
    for (int i = 0; i < 5; ++i)
        entry(journal);  // three more lines of the talker, "ready", and the probe's run
    const Ended ended = host.terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(entry(journal), fields("probe: stop", "6", "probe"));
    EXPECT_EQ(entry(journal), fields("probe: destructor", "6", "probe"));
}

TEST_F(JournalTest, GetsTheHostsOwnMessagesWithTheirFields) {
    const DatagramSocket journal(journal_socket());
    Process host(in_namespace("[blocks.probe]\ntype = \"Probe\"\n", "text"));
    for (int i = 0; i < 3; ++i)
        entry(journal);  // the probe's constructor, setup and start
    EXPECT_EQ(entry(journal), fields("ready", "6"));
    EXPECT_EQ(entry(journal), fields("probe: run", "6", "probe"));
    const Ended ended = host.terminate();
    for (int i = 0; i < 2; ++i)
        entry(journal);  // its stop and destructor
    EXPECT_EQ(entry(journal), fields("stopped", "6"));
    EXPECT_EQ(ended.err, "");
}

TEST_F(JournalTest, GetsTheReasonOfAFailureAsAnError) {
    const DatagramSocket journal(journal_socket());
    Process host(
        in_namespace("[bus]\nnames = [\"org.freedesktop.DBus\"]\n[blocks.t]\n"
                     "type = \"Timer\"\ninterval = 10\n",
                     "json"));
    EXPECT_EQ(host.wait().code, 69);
    auto failure = entry(journal);
    EXPECT_TRUE(failure["MESSAGE"].starts_with("cannot own the bus name 'org.freedesktop.DBus'"))
        << failure["MESSAGE"];
    failure["MESSAGE"].clear();
    EXPECT_EQ(failure, fields("", "3"));
}

TEST_F(JournalTest, GetsTheNewsOfACrashWithItsBlock) {
    const DatagramSocket journal(journal_socket());
    Process host(
        in_namespace("[blocks.b]\ntype = \"Stubborn\"\nin = \"start\"\n"
                     "does = \"crashes\"\n",
                     "json"));
    EXPECT_EQ(host.wait().signal, SIGSEGV);
    auto news = entry(journal);
    while (news["PRIORITY"] != "3")
        news = entry(journal);
    EXPECT_EQ(news, fields("block 'b' crashed in start (SIGSEGV)", "3", "b"));
}

TEST_F(JournalTest, LineOfAnUnknownBlockHasNoField) {
    const DatagramSocket journal(journal_socket());
    Process host(in_namespace("[blocks.c]\ntype = \"Choir\"\ntimes = 1\n", "text"));
    for (int voice = 0; voice < 4; ++voice) {
        auto sung = entry(journal);
        EXPECT_TRUE(sung["MESSAGE"].starts_with("voice ")) << sung["MESSAGE"];
        sung["MESSAGE"].clear();
        EXPECT_EQ(sung, fields("", "6"));
    }
    EXPECT_EQ(host.terminate().code, 0);
}

TEST_F(JournalTest, LineOutsideOfABlocksOperationsHasNoField) {
    const DatagramSocket journal(journal_socket());
    Process host(
        in_namespace("[bus]\nnames = [\"com.example.Journal\"]\n[blocks.echo]\n"
                     "type = \"Exporter\"\npath = \"/com/example/Echo\"\n"
                     "[blocks.probe]\ntype = \"Probe\"\n",
                     "text"));
    for (const char* phase : {"constructor", "setup", "start", "run"})
        EXPECT_EQ(block_entry(journal), fields(std::string("probe: ") + phase, "6", "probe"));
    BusListener client(bus());
    EXPECT_EQ(client.echo("com.example.Journal", "/com/example/Echo", "you"), "echo heard you");
    EXPECT_EQ(entry(journal), fields("echo: was called", "6"));
    EXPECT_EQ(host.terminate().code, 0);
}

TEST_F(JournalTest, GetsTheLinesNextToEventLinesToo) {
    const DatagramSocket journal(journal_socket());
    Process host(in_namespace("[blocks.probe]\ntype = \"Probe\"\n", "json"));
    ASSERT_TRUE(host.wait_for_text("probe: run"));
    const Ended ended = host.terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(entry(journal), fields("probe: constructor", "6", "probe"));
    EXPECT_EQ(lines_with(messages(ended.out), "constructor"), "probe: constructor\n");
}

TEST_F(JournalTest, GetsRepeatedLinesOnceAndThenWithTheirNumber) {
    const DatagramSocket journal(journal_socket());
    for (const std::string format : {"text", "json"}) {
        Process host(
            in_namespace("[blocks.b]\ntype = \"Stubborn\"\nin = \"start\"\n"
                         "does = \"repeats\"\nlines = 20\n",
                         format));
        EXPECT_EQ(block_entry(journal), fields("b: repeats in start", "6", "b"));
        EXPECT_EQ(block_entry(journal), fields("b: no answer", "6", "b"));
        EXPECT_EQ(block_entry(journal),
                  fields("repeated 19 times in 0.0 s: b: no answer", "6", "b"));
        const Ended ended = host.terminate();
        EXPECT_EQ(ended.code, 0);
        if (format == "json") {
            const std::string lines = lines_with(messages(ended.out), "b: no answer");
            EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 20) << "the event lines";
        }
    }
}

TEST_F(JournalTest, IsLeftAloneWhenStderrLeadsElsewhere) {
    for (const char* stream : {"1:1", "", "nonsense"}) {
        const Ended ended =
            run(probes("[blocks.p]\ntype = \"Probe\"\n"), {"--format", "text", "--for", "0.05"},
                {{"JOURNAL_STREAM", stream}});
        EXPECT_EQ(lines_with(ended.err, "info: "),
                  "info: p: constructor\ninfo: p: setup\ninfo: p: start\ninfo: p: run\n"
                  "info: p: stop\ninfo: p: destructor\n")
            << stream;
    }
}

}  // namespace
}  // namespace test
