#include <csignal>

#include "tests/integration/host/datagram_socket.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

using std::chrono::milliseconds;

class ServiceManager : public HostTest {
  protected:
    void start(const std::string& graph, const std::string& sign = "\"ready\"",
               Environment environment = {}) {
        environment["NOTIFY_SOCKET"] = path("notify");
        HostTest::start(graph, {}, sign, environment);
    }

    const DatagramSocket socket_{path("notify")};
};

TEST_F(ServiceManager, IsToldWhenAllBlocksAreStartedAndWhenTheHostStops) {
    start(block("p", "Probe", "start_ms = 600"), "p: setup");
    EXPECT_EQ(socket_.receive(milliseconds(200)), "");
    EXPECT_EQ(socket_.receive(), "READY=1");
    EXPECT_EQ(socket_.receive(milliseconds(100)), "");
    EXPECT_TRUE(host().wait_for_text("\"ready\""));
    EXPECT_EQ(host().terminate().code, 0);
    EXPECT_EQ(socket_.receive(), "STOPPING=1");
    EXPECT_EQ(socket_.receive(milliseconds(10)), "");
}

TEST_F(ServiceManager, IsToldOfTheStopBeforeTheBlocksAre) {
    start(block("l", "Leaver", "stop_ms = 1000"));
    EXPECT_EQ(socket_.receive(), "READY=1");
    host().send_signal(SIGTERM);
    ASSERT_TRUE(host().wait_for_text("l: stop"));
    EXPECT_EQ(socket_.receive(milliseconds(1)), "STOPPING=1");
}

TEST_F(ServiceManager, GetsSignsOfLifeFromTheLoopThatABlockCanHoldUp) {
    start(block("b", "Stubborn", R"(in = "run", does = "sleeps", ms = 2000)"), "\"ready\"",
          {{"WATCHDOG_USEC", "300000"}});
    EXPECT_EQ(socket_.receive(), "READY=1");
    EXPECT_EQ(socket_.receive(), "WATCHDOG=1");
    EXPECT_EQ(socket_.receive(milliseconds(1500)), "");
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(socket_.receive(), "WATCHDOG=1");
}

TEST_F(ServiceManager, IsNeverToldOfAStartThatFailed) {
    EXPECT_EQ(
        run(block("p", "Probe", "throws_in = \"start\""), {}, {{"NOTIFY_SOCKET", path("notify")}})
            .code,
        70);
    EXPECT_EQ(socket_.receive(), "STOPPING=1");
    EXPECT_EQ(socket_.receive(milliseconds(10)), "");
}

}  // namespace
}  // namespace test
