#include <algorithm>
#include <atomic>
#include <csignal>
#include <limits>
#include <sstream>
#include <thread>

#include "tests/integration/host/control_client.hpp"
#include "tests/integration/host/host_test.hpp"
#include "tests/support/json_printing.hpp"
#include "tests/support/proc.hpp"

namespace test {
namespace {

class ReloadUnderLoad : public HostTest {
  protected:
    /// Writes 1, 2, 3 … to an input of the host, each as soon as the last one has come out again,
    /// until its end is asked for.
    class Writer {
      public:
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
                const auto deadline = std::chrono::steady_clock::now() + Process::wait_limit;
                while (client.read("r.int_out") != value) {
                    if (std::chrono::steady_clock::now() > deadline)
                        return;
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                }
            }
        }

        std::atomic<bool> ended_{false};
        int written_ = 0;
        std::thread thread_{[this] { write(); }};
    };

    /// How many of the values that were written have come out again, each in its place.
    static int values_in(const std::string& out) {
        std::istringstream lines(lines_with(out, "\"int_out\""));
        int value = 0;
        for (std::string line; std::getline(lines, line);)
            EXPECT_EQ(common::parse_json(line, "the text").at("value"), ++value);
        return value;
    }

    /// Memory that the host has for itself alone, in bytes.
    std::size_t memory() {
        const long kibibytes = own_memory(host().pid());
        EXPECT_NE(kibibytes, 0);
        return static_cast<std::size_t>(kibibytes) * 1024;
    }

    /// How much the memory of the host grows in each stretch of reloads.
    class Growth {
      public:
        void look(std::size_t memory) {
            if (last_ != 0)
                least_ = std::min(least_, static_cast<long>(memory) - static_cast<long>(last_));
            last_ = memory;
        }

        /// In bytes. A leak shows in each stretch; what the host keeps of a burst of lines, when
        /// others have the machine, shows in one.
        [[nodiscard]] long least() const { return least_; }

      private:
        std::size_t last_ = 0;
        long least_ = std::numeric_limits<long>::max();
    };

    static std::string graph(int level) {
        return block("a", "Settled", "level = " + std::to_string(level)) +
               R"(blocks.still = {type = "Settled"}
                  blocks.r = {type = "Relay"}
                  blocks.t = {type = "Timer", interval = 1}
                  blocks.s = {type = "Sink"}
                  connections = [{from = "t.out", to = "s.tick"}])";
    }
};

TEST_F(ReloadUnderLoad, ThousandReloadsLoseNothingAndKeepNothing) {
    constexpr int reloads = 1000;
    // Values that the block takes: 13, 14, 66 and 67 it does not.
    constexpr int first = 100;
    start(graph(first), {"--control"});
    Writer writer;
    Growth growth;
    // Every change comes, in its order, and to nobody else.
    std::string expected;
    for (int i = first; i < first + reloads; ++i) {
        const std::string now = std::to_string(i) + " none 7";
        const std::string next = std::to_string(i + 1) + " none 7";
        expected.append("a: ").append(now).append(" -> ").append(next).append("\na: ");
        expected.append(next).append(" -> ").append(next).append("\n");
        ASSERT_EQ(reload(graph(i + 1)), "fenwa: graph.toml: reloaded; new settings for 'a'\n");
        if ((i + 1 - first) % (reloads / 4) == 0)
            growth.look(memory());
    }
    EXPECT_LE(growth.least(), 8 * 1024);
    const int written = writer.end();
    const Ended ended = host().terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(lines_with(messages(ended.out), "->"), expected);
    // So has every value that was written meanwhile.
    EXPECT_GT(written, 100);
    EXPECT_EQ(values_in(ended.out), written);
}

TEST_F(ReloadUnderLoad, BlocksThatAreBuiltAnewLeaveNothingBehind) {
    constexpr int reloads = 400;
    // Between the timer and two others, which go on.
    const auto with_counter = [](int i) {
        const std::string number = std::to_string(i);
        return block("c" + number, "Counter") + block("e", "Events", "") + block("h", "Hearer") +
               block("p", "Source", "runs = 9, constant = " + number + ".5") +
               R"(blocks.r = {type = "Relay"}
                  blocks.t = {type = "Timer", interval = 1}
                  blocks.s = {type = "Sink", only = "double"}
                  connections = [{from = "t.out", to = "c)" +
               number + R"(.tick"}, {from = "p.out", to = "s.double"}])";
    };
    start(with_counter(1), {"--control"});
    Writer writer;
    Growth growth;
    for (int i = 1; i <= reloads; ++i) {
        ASSERT_NE(reload(with_counter(i + 1)).find("reloaded; rebuilt 'p'; added 'c"),
                  std::string::npos);
        if (i % (reloads / 4) == 0)
            growth.look(memory());
    }
    EXPECT_LE(growth.least(), 8 * 1024);
    const int written = writer.end();
    const Ended ended = host().terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_GT(written, 100);
    EXPECT_EQ(values_in(ended.out), written);
}

TEST_F(ReloadUnderLoad, SignalsThatComeTogetherEndInTheFileAsItIs) {
    start(graph(100), {"--control"});
    Writer writer;
    for (int i = 0; i < 1000; ++i)
        host().send_signal(SIGHUP);
    ASSERT_TRUE(host().wait_for_error_text("reloaded; no settings have changed"));
    write_graph(graph(200));
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
