#include <chrono>

#include "tests/integration/host/control_client.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

using Clock = std::chrono::steady_clock;

/// Calls without a pause: many calls are always unanswered.
class Flood {
  public:
    /// @param port what "Read" is called for; "Describe" takes none.
    Flood(const std::string& address, std::string method, std::string port = {})
        : client_(address), method_(std::move(method)), port_(std::move(port)) {}

    /// @returns how many calls were answered.
    std::size_t pour(std::chrono::milliseconds time) {
        end_ = Clock::now() + time;
        for (int i = 0; i < 100; ++i)
            send();
        const auto patience = end_ + std::chrono::seconds(20);
        while (unanswered_ > 0 && Clock::now() < patience) {
            if (common::check(sd_bus_process(&client_.bus(), nullptr), "process") == 0)
                common::check(sd_bus_wait(&client_.bus(), 20'000), "wait");
        }
        EXPECT_EQ(unanswered_, 0U);
        return answered_;
    }

  private:
    void send() {
        const common::MessagePtr call = client_.new_call(method_.c_str());
        if (!port_.empty())
            common::check(sd_bus_message_append(call.get(), "s", port_.c_str()), "append");
        common::check(sd_bus_call_async(&client_.bus(), nullptr, call.get(), on_answer, this, 0),
                      "call");
        ++unanswered_;
    }

    static int on_answer(sd_bus_message* reply, void* userdata, sd_bus_error* /*error*/) {
        auto& flood = *static_cast<Flood*>(userdata);
        --flood.unanswered_;
        flood.answered_ += sd_bus_message_is_method_error(reply, nullptr) > 0 ? 0U : 1U;
        if (Clock::now() < flood.end_)
            flood.send();
        return 0;
    }

    ControlClient client_;
    std::string method_;
    std::string port_;
    Clock::time_point end_;
    std::size_t unanswered_ = 0;
    std::size_t answered_ = 0;
};

class ControlFlood : public HostTest {
  protected:
    /// Expects that the timer of a graph with `blocks` more blocks ticks on during a flood.
    void expect_ticks_during(int blocks, const char* method, const char* port) const {
        std::string graph = "[blocks.m]\ntype = \"Timer\"\ninterval = 20\n";
        for (int i = 0; i < blocks; ++i)
            graph += "[blocks.r" + std::to_string(i) + "]\ntype = \"Relay\"\n";
        Process host(run_command(probes(graph), {"--bus", bus(), "--control"}));
        ASSERT_TRUE(host.wait_for_text("\"ready\""));
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
        EXPECT_EQ(host.terminate().code, 0);
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
    Process host(run_command(
        probes("[host]\nrun_rate = 0\n[blocks.spinner]\ntype = \"Spinner\"\n[blocks.r]\n"
               "type = \"Relay\"\n"),
        {"--bus", bus(), "--control"}));
    ASSERT_TRUE(host.wait_for_text("spinner: spins"));
    EXPECT_GT(Flood(bus(), "Read", "r.int").pour(std::chrono::milliseconds(300)), 100U);
    const ControlClient client(bus());
    EXPECT_EQ(client.write("r.int", "i", 4), "ok");
    EXPECT_TRUE(host.wait_for_text(R"("block":"r","port":"int_out","type":"int","value":4)"));
    EXPECT_EQ(host.terminate().code, 0);
}

}  // namespace
}  // namespace test
