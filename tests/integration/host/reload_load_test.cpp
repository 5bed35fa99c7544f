#include <unistd.h>

#include <atomic>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "tests/integration/host/control_client.hpp"
#include "tests/integration/host/reload_scene.hpp"

namespace test {
namespace {

class ReloadUnderLoad : public ReloadTest {
  protected:
    /// Writes 1, 2, 3 … to an input of the host, each as soon as the last one has come out again,
    /// until it is told to end.
    class Writer {
      public:
        Writer() : thread_([this] { write(); }) {}
        Writer(const Writer&) = delete;
        Writer& operator=(const Writer&) = delete;
        ~Writer() { end(); }

        /// @returns how many values the host has taken.
        int end() {
            ended_ = true;
            if (thread_.joinable())
                thread_.join();
            return written_;
        }

      private:
        void write() {
            const ControlClient client(bus());
            while (!ended_ && client.write("r.int", "i", written_ + 1) == "ok") {
                ++written_;
                const std::string value = "i " + std::to_string(written_);
                const auto patience = std::chrono::steady_clock::now() + Process::patience;
                while (client.read("r.int_out") != value) {
                    if (std::chrono::steady_clock::now() > patience)
                        return;
                }
            }
        }

        std::atomic<bool> ended_{false};
        int written_ = 0;
        std::thread thread_;
    };

    /// How many of the values that were written have come out again, each in its place.
    static int values_in(const std::string& out) {
        std::istringstream lines(lines_with(out, "\"int_out\""));
        int value = 0;
        for (std::string line; std::getline(lines, line);)
            EXPECT_EQ(nlohmann::json::parse(line).at("value"), ++value);
        return value;
    }

    /// Memory that the host has for itself alone, in bytes.
    std::size_t memory() {
        std::ifstream file("/proc/" + std::to_string(host().pid()) + "/smaps_rollup");
        std::size_t bytes = 0;
        for (std::string line; std::getline(file, line);) {
            if (line.starts_with("Private_Dirty:"))
                bytes = std::stoul(line.substr(14)) * 1024;
        }
        EXPECT_NE(bytes, 0U);
        return bytes;
    }

    static std::string graph(int level) {
        return settled("a", "level = " + std::to_string(level) + "\n") + settled("still", "") +
               "[blocks.r]\ntype = \"Relay\"\n[blocks.t]\ntype = \"Timer\"\ninterval = 1\n"
               "[blocks.s]\ntype = \"Sink\"\n[[connections]]\nfrom = \"t.out\"\nto = \"s.tick\"\n";
    }
};

TEST_F(ReloadUnderLoad, ThousandReloadsLoseNothingAndKeepNothing) {
    constexpr int warm_up = 200;
    constexpr int reloads = 1000;
    // Values that the block takes: 13, 14, 66 and 67 it does not.
    constexpr int first = 100;
    start(graph(first), {"--control"});
    Writer writer;
    std::size_t memory_before = 0;
    for (int i = 1; i <= reloads; ++i) {
        ASSERT_EQ(reload(graph(first + i)), "fenwa: graph.toml: reloaded; new settings for 'a'\n");
        if (i == warm_up)
            memory_before = memory();
    }
    const std::size_t memory_after = memory();
    const int written = writer.end();
    const Ended ended = host().terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_LE(memory_after, memory_before + 64 * 1024);

    // Every change has come, in its order, and to nobody else.
    std::string expected;
    for (int i = first; i < first + reloads; ++i) {
        const std::string now = std::to_string(i) + " none 7";
        const std::string next = std::to_string(i + 1) + " none 7";
        expected.append("a: ").append(now).append(" -> ").append(next).append("\na: ");
        expected.append(next).append(" -> ").append(next).append("\n");
    }
    EXPECT_EQ(lines_with(messages(ended.out), "->"), expected);

    // So has every value that was written meanwhile.
    EXPECT_GT(written, 100);
    EXPECT_EQ(values_in(ended.out), written);
}

TEST_F(ReloadUnderLoad, SignalsThatComeTogetherEndInTheFileAsItIs) {
    start(graph(100), {"--control"});
    Writer writer;
    for (int i = 0; i < 1000; ++i)
        host().send_signal(SIGHUP);
    ASSERT_TRUE(host().wait_for_error_text("reloaded; no settings have changed"));
    rewrite(graph(200));
    host().send_signal(SIGHUP);
    ASSERT_TRUE(host().wait_for_error_text("new settings for 'a'"));
    EXPECT_EQ(ControlClient(bus()).read("a.level"), "d 200");
    const int written = writer.end();
    const Ended ended = host().terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(values_in(ended.out), written);
}

}  // namespace
}  // namespace test
