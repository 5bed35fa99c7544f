#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <cstring>

#include "common/process/descriptor.hpp"
#include "tests/integration/host/bus_listener.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

using Clock = std::chrono::steady_clock;

const std::string timer = block("t", "Timer", "interval = 5000");

class BusAddress : public HostTest {
  protected:
    /// Runs the graph for a moment without `--bus`.
    Ended run_graph(const std::string& graph, const Environment& environment = {}) const {
        return without_folder(run_program(command("run", graph, {"--for", "0.01"}), environment));
    }
    static std::string address(const std::string& text) {
        return "bus.address = \"" + text + "\"\n" + timer;
    }
    static std::string names(const std::string& list) { return "bus.names = [" + list + "]\n"; }
};

/// What to do about a bus where nobody listens.
const std::string advice =
    "; name another bus with --bus, or give a program its own: fenwa-camera run --private-bus -- "
    "PROGRAM\n";
const std::string not_there =
    "fenwa: cannot reach the bus at 'unix:path=/no/bus': No such file or directory" + advice;

TEST_F(BusAddress, WhereNobodyListensIsNamed) {
    const Ended ended = run(timer, {"--bus", "unix:path=/no/bus"});
    expect_end(ended, 69, not_there);
    EXPECT_EQ(without_times(ended.out), exit_line(69));
}

TEST_F(BusAddress, OfNonsenseIsNamed) {
    for (const std::string text : {"nonsense", "", "unix:", "unix:path=", "tcp:port=x"}) {
        const Ended ended = run_graph(address(text));
        EXPECT_EQ(ended.code, 69) << text;
        EXPECT_TRUE(ended.err.starts_with("fenwa: cannot reach the bus at '" + text + "': "))
            << ended.err;
        EXPECT_EQ(count_lines(ended.err), 1);
    }
}

TEST_F(BusAddress, ThatAcceptsAndStaysSilentIsGivenUpInTime) {
    const common::Descriptor silent(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path("silent").c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(bind(silent.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(silent.get(), 5), 0);
    const auto begin = Clock::now();
    const Ended ended =
        run(timer, {"--bus", "unix:path=" + path("silent"), "--call-timeout", "0.3"});
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(3));
    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(300));
    expect_end(ended, 69,
               "fenwa: cannot reach the bus at 'unix:path=silent': no answer within 0.300000 s\n");
    EXPECT_EQ(without_times(ended.out), exit_line(69));
}

TEST_F(BusAddress, OfTheCommandLineWinsOverTheGraphs) {
    EXPECT_EQ(run_graph(address(bus())).code, 0);
    expect_end(run(address("unix:path=/no/bus"), {"--for", "0.01"}));
    expect_end(run(address(bus()), {"--bus", "unix:path=/no/bus"}), 69, not_there);
}

TEST_F(BusAddress, MayBeTheSystemBusAsWithoutOneOrTheSessionBus) {
    const std::pair<std::string, std::string> graphs[]{
        {"system", timer}, {"system", address("system")}, {"session", address("session")}};
    for (const auto& [name, graph] : graphs) {
        const std::string variable =
            name == "system" ? "DBUS_SYSTEM_BUS_ADDRESS" : "DBUS_SESSION_BUS_ADDRESS";
        EXPECT_EQ(run_graph(graph, {{variable, bus()}}).code, 0) << graph;
        expect_end(run_graph(graph, {{variable, "unix:path=/no/bus"}}), 69,
                   "fenwa: cannot reach the bus at '" + name +
                       "' (unix:path=/no/bus): No such file or directory" + advice);
    }
}

TEST_F(BusAddress, OfAMissingBusIsShownAsTheProgramFindsIt) {
    const std::string script =
        "unset DBUS_SESSION_BUS_ADDRESS XDG_RUNTIME_DIR; eval \"$0\"; exec \"$@\"";
    const std::pair<std::string, std::string> found[]{
        {"XDG_RUNTIME_DIR=/no; export XDG_RUNTIME_DIR",
         "'session' (unix:path=/no/bus): No such file or directory"},
        {"true", "'session': neither DBUS_SESSION_BUS_ADDRESS nor XDG_RUNTIME_DIR is set"}};
    for (const auto& [environment, text] : found)
        expect_end(run_program(Words{"sh", "-c", script, environment} +
                               run_command(timer, {"--bus", "session"})),
                   69, "fenwa: cannot reach the bus at " + text + advice);
    expect_end(
        run(timer, {"--bus", "nonsense"}), 69,
        "fenwa: cannot reach the bus at 'nonsense': Connection refused; an address looks like "
        "unix:path=/run/dbus/system_bus_socket\n");
}

TEST_F(BusAddress, NamesAreOwnedWhileTheGraphRuns) {
    BusListener listener(bus());
    start(names(R"("com.example.First", "com.example.Second")") + timer);
    EXPECT_TRUE(listener.has_owner("com.example.First"));
    EXPECT_TRUE(listener.has_owner("com.example.Second"));
    stop();
    EXPECT_TRUE(listener.loses_owner("com.example.First"));
    EXPECT_TRUE(listener.loses_owner("com.example.Second"));
}

TEST_F(BusAddress, NameOfSomebodyElseIsNotTaken) {
    BusListener owner(bus());
    owner.own("com.example.Taken");
    const Ended ended =
        run(names(R"("com.example.Free", "com.example.Taken")") + block("p", "Probe"));
    expect_end(ended, 69,
               "fenwa: cannot own the bus name 'com.example.Taken': another connection owns it\n");
    EXPECT_EQ(without_times(ended.out), exit_line(69));  // no block was built
    const Ended reserved = run(names(R"("org.freedesktop.DBus")") + timer);
    EXPECT_EQ(reserved.code, 69);
    EXPECT_TRUE(reserved.err.starts_with("fenwa: cannot own the bus name 'org.freedesktop.DBus': "))
        << reserved.err;
}

}  // namespace
}  // namespace test
