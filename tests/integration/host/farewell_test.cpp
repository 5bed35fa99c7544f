#include <atomic>
#include <csignal>
#include <thread>

#include "tests/integration/host/bus_listener.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

using Clock = std::chrono::steady_clock;
using common::check;

/// What blocks send while they are stopped and destroyed.
class Farewell : public HostTest {};

/// Sends signals to whoever listens, as fast as the daemon takes them.
class Noise {
  public:
    explicit Noise(const std::string& address)
        : bus_(common::open_bus(address, std::chrono::seconds(10))) {
        thread_ = std::thread([this] {
            while (!over_) {
                sd_bus_emit_signal(bus_.get(), "/com/example/Noise", "com.example.Noise1", "Noise",
                                   "s", std::string(500, 'n').c_str());
                sd_bus_flush(bus_.get());
            }
        });
    }
    ~Noise() {
        over_ = true;
        thread_.join();
    }

  private:
    common::BusPtr bus_;
    std::atomic<bool> over_{false};
    std::thread thread_;
};

/// The service that Hearer asks, which answers when it is told to.
class Asked {
  public:
    explicit Asked(const std::string& address)
        : bus_(common::open_bus(address, std::chrono::seconds(10))) {
        check(sd_bus_add_filter(bus_.get(), nullptr, on_message, this), "filter");
        common::own_name(*bus_, "com.example.Asked");
    }

    void wait_for_question() {
        const auto deadline = Clock::now() + Process::patience;
        while (question_ == nullptr && Clock::now() < deadline) {
            if (check(sd_bus_process(bus_.get(), nullptr), "process") == 0)
                check(sd_bus_wait(bus_.get(), 20'000), "wait");
        }
        ASSERT_NE(question_, nullptr);
    }

    void answer() {
        check(sd_bus_reply_method_return(question_.get(), ""), "reply");
        check(sd_bus_flush(bus_.get()), "flush");
    }

  private:
    static int on_message(sd_bus_message* message, void* userdata, sd_bus_error* /*error*/) {
        if (sd_bus_message_is_method_call(message, "com.example.Asked1", "Ask") <= 0)
            return 0;
        static_cast<Asked*>(userdata)->question_.reset(sd_bus_message_ref(message));
        return 1;
    }

    common::BusPtr bus_;
    common::MessagePtr question_;
};

TEST_F(Farewell, ReachesItsReceiverOnABusyBus) {
    const Noise noise(bus());
    const std::vector<std::string> all{"two stop", "one stop", "two destructor", "one destructor"};
    for (int i = 0; i < 40; ++i) {
        BusListener listener(bus());
        listener.listen_for_farewells();
        Process host(run_command(probes("[blocks.hearer]\ntype = \"Hearer\"\n"
                                        "[blocks.one]\ntype = \"Leaver\"\nstop_ms = 10\n"
                                        "[blocks.two]\ntype = \"Leaver\"\n"),
                                 {"--bus", bus()}));
        ASSERT_TRUE(host.wait_for_text("\"ready\""));
        const Ended ended = host.terminate();
        EXPECT_EQ(ended.code, 0);
        EXPECT_EQ(ended.err, "");
        ASSERT_EQ(listener.farewells(4), all) << i;
    }
}

TEST_F(Farewell, IsWholeThoughItIsMoreThanASocketHolds) {
    constexpr std::size_t shouts = 3000;
    BusListener listener(bus());
    listener.listen_for_farewells();
    const Ended ended = run(probes("[blocks.b]\ntype = \"Stubborn\"\nin = \"destructor\"\n"
                                   "does = \"shouts\"\n"),
                            {"--for", "0.1"});
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(listener.farewells(shouts).size(), shouts);
}

TEST_F(Farewell, IsNotHeardByTheBlocksThemselves) {
    Asked service(bus());
    BusListener listener(bus());
    listener.listen_for_farewells();
    Process host(run_command(probes("[blocks.hearer]\ntype = \"Hearer\"\n"
                                    "[blocks.one]\ntype = \"Leaver\"\nstop_ms = 500\n"
                                    "[blocks.two]\ntype = \"Leaver\"\n"),
                             {"--bus", bus()}));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    service.wait_for_question();
    host.send_signal(SIGTERM);
    ASSERT_EQ(listener.farewells(1).size(), 1U);
    // From here on the host reads it only to get to the end of what there is.
    service.answer();
    const Ended ended = host.wait();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(messages(ended.out), "two: stop\none: stop\n");
    EXPECT_EQ(listener.farewells(4).size(), 4U);
}

TEST_F(Farewell, ToADaemonThatStandsStillIsGivenUpAfterAWhile) {
    for (const char* does : {"shouts", "sleeps"}) {
        const common::PrivateBus frozen;
        Process host(run_command(probes(std::string("[blocks.b]\ntype = \"Stubborn\"\n"
                                                    "in = \"stop\"\ndoes = \"") +
                                        does + "\"\n"),
                                 {"--bus", frozen.address(), "--control"}));
        ASSERT_TRUE(host.wait_for_text("\"ready\""));
        kill(frozen.pid(), SIGSTOP);
        const auto begin = Clock::now();
        const Ended ended = host.terminate();
        kill(frozen.pid(), SIGCONT);
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
