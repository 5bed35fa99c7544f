#include <atomic>
#include <csignal>
#include <thread>

#include "common/bus/callback.hpp"
#include "tests/integration/host/asked.hpp"
#include "tests/integration/host/bus_listener.hpp"
#include "tests/integration/host/host_test.hpp"
#include "tests/support/bus_daemon.hpp"

namespace test {
namespace {

using Clock = std::chrono::steady_clock;
using common::check;

/// The signals that blocks send while they are stopped and destroyed.
class Farewell : public HostTest {
  protected:
    Farewell() { listener_.listen_for_farewells(); }

    /// A block that hears others, and two that send farewells.
    static std::string leavers(int milliseconds) {
        return block("hearer", "Hearer") +
               block("one", "Leaver", "stop_ms = " + std::to_string(milliseconds)) +
               block("two", "Leaver");
    }
    static std::string stubborn(const std::string& in, const std::string& does) {
        return block("b", "Stubborn", "in = \"" + in + "\", does = \"" + does + "\"");
    }

    BusListener listener_{bus()};
};

/// Sends signals to whoever listens, as fast as the daemon takes them.
class Noise : public BusClient {
  public:
    explicit Noise(const std::string& address) : BusClient(address) {
        thread_ = std::thread([this] {
            while (!over_) {
                sd_bus_emit_signal(&bus(), "/com/example/Noise", "com.example.Noise1", "Noise", "s",
                                   std::string(500, 'n').c_str());
                sd_bus_flush(&bus());
            }
        });
    }
    ~Noise() {
        over_ = true;
        thread_.join();
    }

  private:
    std::atomic<bool> over_{false};
    std::thread thread_;
};

TEST_F(Farewell, ReachesItsReceiverOnABusyBus) {
    const Noise noise(bus());
    Asked service(bus());
    const std::vector<std::string> all{"two stop", "one stop", "two destructor", "one destructor"};
    for (int i = 0; i < 40; ++i) {
        BusListener listener(bus());
        listener.listen_for_farewells();
        start(leavers(10));
        stop();
        ASSERT_EQ(listener.farewells(4), all) << i;
    }
}

TEST_F(Farewell, IsWholeThoughItIsMoreThanASocketHolds) {
    constexpr std::size_t shouts = 3000;
    expect_end(run(stubborn("destructor", "shouts"), {"--for", "0.1"}));
    EXPECT_EQ(listener_.farewells(shouts).size(), shouts);
}

TEST_F(Farewell, IsNotHeardByTheBlocksThemselves) {
    Asked service(bus());
    start(leavers(500));
    service.wait_for_question();
    host().send_signal(SIGTERM);
    ASSERT_EQ(listener_.farewells(1).size(), 1U);
    // From here on the host reads it only to get to the end of what there is.
    service.answer();
    const Ended ended = host().wait();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(messages(ended.out), "two: stop\none: stop\n");
    EXPECT_EQ(listener_.farewells(4).size(), 4U);
}

TEST_F(Farewell, ToADaemonThatStandsStillIsGivenUpAfterAWhile) {
    for (const char* does : {"shouts", "sleeps"}) {
        const common::PrivateBus frozen;
        start(stubborn("stop", does), {"--bus", frozen.address(), "--control"});
        const pid_t daemon = serving_process(frozen.pid());
        kill(daemon, SIGSTOP);
        const auto begin = Clock::now();
        const Ended ended = host().terminate();
        kill(daemon, SIGCONT);
        EXPECT_EQ(ended.code, 0);
        EXPECT_LT(Clock::now() - begin, std::chrono::seconds(9));
        EXPECT_GE(Clock::now() - begin, std::chrono::seconds(5));
        EXPECT_TRUE(ended.err.ends_with("fenwa: the bus at '" + frozen.address() +
                                        "' has not read all that was sent to it\n"))
            << ended.err;
    }
}

}  // namespace
}  // namespace test
