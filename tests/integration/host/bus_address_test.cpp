#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "tests/integration/host/bus_listener.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

using Clock = std::chrono::steady_clock;

const std::string timer = "[blocks.t]\ntype = \"Timer\"\ninterval = 5000\n";
const std::string unavailable = "{\"event\":\"exit\",\"time\":0,\"status\":69}\n";

/// A socket that takes connections and never says anything.
class SilentSocket {
  public:
    explicit SilentSocket(const std::string& path)
        : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(fd_, 5), 0);
    }
    SilentSocket(const SilentSocket&) = delete;
    SilentSocket& operator=(const SilentSocket&) = delete;
    ~SilentSocket() { close(fd_); }

  private:
    int fd_;
};

class BusAddress : public HostTest {
  protected:
    /// Runs a graph without `--bus`.
    Ended run_graph(const std::string& graph, const Words& arguments = {},
                    const Environment& environment = {}) const {
        return without_folder(run_program(run_command(graph, arguments), environment));
    }
};

TEST_F(BusAddress, WhereNobodyListensIsNamed) {
    const Ended ended = run_graph(timer, {"--bus", "unix:path=/no/bus"});
    EXPECT_EQ(ended.code, 69);
    EXPECT_EQ(without_times(ended.out), unavailable);
    EXPECT_EQ(ended.err,
              "fenwa: cannot reach the bus at 'unix:path=/no/bus': No such file or directory\n");
}

TEST_F(BusAddress, OfNonsenseIsNamed) {
    for (const char* address : {"nonsense", "", "unix:", "unix:path=", "tcp:port=x"}) {
        const Ended ended =
            run_graph("[bus]\naddress = \"" + std::string(address) + "\"\n" + timer);
        EXPECT_EQ(ended.code, 69) << address;
        EXPECT_TRUE(ended.err.starts_with("fenwa: cannot reach the bus at '" +
                                          std::string(address) + "': "))
            << ended.err;
        EXPECT_EQ(std::count(ended.err.begin(), ended.err.end(), '\n'), 1);
    }
}

TEST_F(BusAddress, ThatAcceptsAndStaysSilentIsGivenUpInTime) {
    const std::string path = (folder().path() / "silent").string();
    const SilentSocket socket(path);
    const auto begin = Clock::now();
    const Ended ended = run_graph(timer, {"--bus", "unix:path=" + path, "--call-timeout", "0.3"});
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(3));
    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(300));
    EXPECT_EQ(ended.code, 69);
    EXPECT_EQ(without_times(ended.out), unavailable);
    EXPECT_EQ(ended.err,
              "fenwa: cannot reach the bus at 'unix:path=silent': no answer within "
              "0.300000 s\n");
}

TEST_F(BusAddress, OfTheGraphIsUsed) {
    BusListener listener(bus());
    Process host(run_command("[bus]\naddress = \"" + bus() +
                             "\"\nnames = [\"com.example.FromGraph\"]\n" + timer));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    EXPECT_TRUE(listener.has_owner("com.example.FromGraph"));
    EXPECT_EQ(host.terminate().code, 0);
}

TEST_F(BusAddress, OfTheCommandLineWinsOverTheGraphs) {
    const Ended ended = run_graph("[bus]\naddress = \"unix:path=/no/bus\"\n" + timer,
                                  {"--bus", bus(), "--for", "0.01"});
    EXPECT_EQ(ended.code, 0) << ended.err;
    EXPECT_EQ(run_graph("[bus]\naddress = \"" + bus() + "\"\n" + timer,
                        {"--bus", "unix:path=/no/bus", "--for", "0.01"})
                  .code,
              69);
}

TEST_F(BusAddress, IsTheSystemBusWhenNoneIsGiven) {
    EXPECT_EQ(run_graph(timer, {"--for", "0.01"}, {{"DBUS_SYSTEM_BUS_ADDRESS", bus()}}).code, 0);
    const Ended ended = run_graph(timer, {}, {{"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/no/bus"}});
    EXPECT_EQ(ended.code, 69);
    EXPECT_EQ(ended.err, "fenwa: cannot reach the bus at 'system': No such file or directory\n");
}

TEST_F(BusAddress, MayBeTheSessionBus) {
    const std::string graph = "[bus]\naddress = \"session\"\n" + timer;
    EXPECT_EQ(run_graph(graph, {"--for", "0.01"}, {{"DBUS_SESSION_BUS_ADDRESS", bus()}}).code, 0);
    EXPECT_EQ(run_graph(timer, {"--bus", "session", "--for", "0.01"},
                        {{"DBUS_SESSION_BUS_ADDRESS", "unix:path=/no/bus"}})
                  .err,
              "fenwa: cannot reach the bus at 'session': No such file or directory\n");
}

TEST_F(BusAddress, NamesAreOwnedWhileTheGraphRuns) {
    BusListener listener(bus());
    Process host(
        run_command("[bus]\nnames = [\"com.example.First\", \"com.example.Second\"]\n" + timer,
                    {"--bus", bus()}));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    EXPECT_TRUE(listener.has_owner("com.example.First"));
    EXPECT_TRUE(listener.has_owner("com.example.Second"));
    EXPECT_EQ(host.terminate().code, 0);
    EXPECT_TRUE(listener.loses_owner("com.example.First"));
    EXPECT_TRUE(listener.loses_owner("com.example.Second"));
}

TEST_F(BusAddress, NameOfSomebodyElseIsNotTaken) {
    BusListener owner(bus());
    owner.own("com.example.Taken");
    const Ended ended =
        run(probes("[bus]\nnames = [\"com.example.Free\", \"com.example.Taken\"]\n"
                   "[blocks.p]\ntype = \"Probe\"\n"));
    EXPECT_EQ(ended.code, 69);
    EXPECT_EQ(without_times(ended.out), unavailable);  // no block was built
    EXPECT_EQ(ended.err,
              "fenwa: cannot own the bus name 'com.example.Taken': another connection "
              "owns it\n");
}

TEST_F(BusAddress, NameOfTheDaemonCannotBeHad) {
    const Ended ended = run("[bus]\nnames = [\"org.freedesktop.DBus\"]\n" + timer);
    EXPECT_EQ(ended.code, 69);
    EXPECT_TRUE(ended.err.starts_with("fenwa: cannot own the bus name 'org.freedesktop.DBus': "))
        << ended.err;
}

}  // namespace
}  // namespace test
