#include <chrono>

#include "common/bus/callback.hpp"
#include "tests/integration/host/control_client.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

using Clock = std::chrono::steady_clock;

/// Calls without a pause: many calls are always unanswered.
class Flood : public ControlClient {
  public:
    /// @param port what "Read" is called for; "Describe" takes none.
    Flood(const std::string& address, std::string method, std::string port = {})
        : ControlClient(address), method_(std::move(method)), port_(std::move(port)) {}

    /// @returns how many calls were answered.
    std::size_t pour(std::chrono::milliseconds time) {
        end_ = Clock::now() + time;
        for (int i = 0; i < 100; ++i)
            send();
        serve_until([this] { return unanswered_ == 0; });
        EXPECT_EQ(unanswered_, 0U);
        return answered_;
    }

  private:
    void send() {
        const common::MessagePtr call = new_call(method_.c_str());
        if (!port_.empty())
            common::check(sd_bus_message_append(call.get(), "s", port_.c_str()), "append");
        common::check(sd_bus_call_async(&bus(), nullptr, call.get(),
                                        common::callback<&Flood::on_answer>, this, 0),
                      "call");
        ++unanswered_;
    }

    void on_answer(sd_bus_message& reply) {
        --unanswered_;
        answered_ += sd_bus_message_is_method_error(&reply, nullptr) > 0 ? 0U : 1U;
        if (Clock::now() < end_)
            send();
    }

    std::string method_;
    std::string port_;
    Clock::time_point end_;
    std::size_t unanswered_ = 0;
    std::size_t answered_ = 0;
};

class ControlFlood : public HostTest {
  protected:
    /// Expects that the timer of a graph with `blocks` more blocks ticks on during a flood.
    void expect_ticks_during(int blocks, const char* method, const char* port) {
        std::string graph = block("m", "Timer", "interval = 20");
        for (int i = 0; i < blocks; ++i)
            graph += block("r" + std::to_string(i), "Relay");
        start(graph, {"--control"});
        const ControlClient client(bus());
        const auto ticks = [&client] {
            unsigned long count = 0;
            EXPECT_EQ(std::sscanf(client.read("m.out").c_str(), "(tt) %lu", &count), 1);
            return count;
        };
        const unsigned long before = ticks();
        EXPECT_GT(Flood(bus(), method, port).pour(std::chrono::milliseconds(1000)), 100U);
        // 50 on an idle machine.
        EXPECT_GE(ticks() - before, 25U);
    }
};

TEST_F(ControlFlood, OfReadsDoesNotStopTheTimers) {
    expect_ticks_during(0, "Read", "m.out");
}

TEST_F(ControlFlood, OfLongDescriptionsDoesNotStopTheTimers) {
    // Each takes the host longer than the bus, so that the next call always waits for it.
    expect_ticks_during(20, "Describe", "");
}

TEST_F(ControlFlood, IsServedBesideABlockThatIsAlwaysBusy) {
    start("host.run_rate = 0\n" + block("spinner", "Spinner") + block("r", "Relay"), {"--control"},
          "spinner: spins");
    EXPECT_GT(Flood(bus(), "Read", "r.int").pour(std::chrono::milliseconds(300)), 100U);
    EXPECT_EQ(ControlClient(bus()).write("r.int", "i", 4), "ok");
    EXPECT_TRUE(host().wait_for_text(R"("block":"r","port":"int_out","type":"int","value":4)"));
}

}  // namespace
}  // namespace test
