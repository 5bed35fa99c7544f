#include "tests/integration/host/datagram_socket.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

class ServiceManager : public HostTest {
  protected:
    std::string path() const { return (folder().path() / "notify").string(); }
};

TEST_F(ServiceManager, IsToldWhenAllBlocksAreStartedAndWhenTheHostStops) {
    const DatagramSocket socket(path());
    Process host(
        run_command(probes("[blocks.p]\ntype = \"Probe\"\nstart_ms = 600\n"), {"--bus", bus()}),
        {{"NOTIFY_SOCKET", path()}});
    ASSERT_TRUE(host.wait_for_text("p: setup"));
    EXPECT_EQ(socket.receive(std::chrono::milliseconds(200)), "");
    EXPECT_EQ(socket.receive(), "READY=1");
    EXPECT_EQ(socket.receive(std::chrono::milliseconds(100)), "");
    EXPECT_TRUE(host.wait_for_text("\"ready\""));
    EXPECT_EQ(host.terminate().code, 0);
    EXPECT_EQ(socket.receive(), "STOPPING=1");
    EXPECT_EQ(socket.receive(std::chrono::milliseconds(10)), "");
}

TEST_F(ServiceManager, IsToldOfTheStopBeforeTheBlocksAre) {
    const DatagramSocket socket(path());
    Process host(
        run_command(probes("[blocks.l]\ntype = \"Leaver\"\nstop_ms = 1000\n"), {"--bus", bus()}),
        {{"NOTIFY_SOCKET", path()}});
    EXPECT_EQ(socket.receive(), "READY=1");
    host.send_signal(SIGTERM);
    ASSERT_TRUE(host.wait_for_text("l: stop"));
    EXPECT_EQ(socket.receive(std::chrono::milliseconds(1)), "STOPPING=1");
    EXPECT_EQ(host.wait().code, 0);
}

TEST_F(ServiceManager, GetsSignsOfLifeFromTheLoopThatABlockCanHoldUp) {
    const DatagramSocket socket(path());
    Process host(run_command(probes("[blocks.b]\ntype = \"Stubborn\"\nin = \"run\"\n"
                                    "does = \"sleeps\"\nms = 2000\n"),
                             {"--bus", bus()}),
                 {{"NOTIFY_SOCKET", path()}, {"WATCHDOG_USEC", "300000"}});
    EXPECT_EQ(socket.receive(), "READY=1");
    EXPECT_EQ(socket.receive(), "WATCHDOG=1");
    EXPECT_EQ(socket.receive(std::chrono::milliseconds(1500)), "");
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(socket.receive(), "WATCHDOG=1");
    EXPECT_EQ(host.terminate().code, 0);
}

TEST_F(ServiceManager, IsNeverToldOfAStartThatFailed) {
    const DatagramSocket socket(path());
    const Ended ended = run(probes("[blocks.p]\ntype = \"Probe\"\nthrows_in = \"start\"\n"), {},
                            {{"NOTIFY_SOCKET", path()}});
    EXPECT_EQ(ended.code, 70);
    EXPECT_EQ(socket.receive(), "STOPPING=1");
    EXPECT_EQ(socket.receive(std::chrono::milliseconds(10)), "");
}

}  // namespace
}  // namespace test
