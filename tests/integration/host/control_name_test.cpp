#include "tests/integration/host/bus_listener.hpp"
#include "tests/integration/host/control_client.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

/// The bus name of the control interface, and what stands behind it.
class ControlName : public HostTest {};

const std::string standard_name = "com.tarlo.Fenwa.Host1";
const std::string relay = "[blocks.r]\ntype = \"Relay\"\n";

TEST_F(ControlName, LeadsToAnInterfaceThatCanBeIntrospected) {
    Process host(run_command(probes(relay), {"--bus", bus(), "--control"}));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    const Ended seen = run_program({"busctl", "--address=" + bus(), "introspect", "--xml-interface",
                                    standard_name, "/com/tarlo/Fenwa/Host1"});
    EXPECT_EQ(seen.code, 0) << seen.err;
    const std::size_t begin = seen.out.find(" <interface name=\"" + standard_name + "\">");
    const std::string end = " </interface>\n";
    ASSERT_NE(begin, std::string::npos) << seen.out;
    EXPECT_EQ(seen.out.substr(begin, seen.out.find(end, begin) - begin + end.size()),
              " <interface name=\"com.tarlo.Fenwa.Host1\">\n"
              "  <method name=\"Read\">\n"
              "   <arg type=\"s\" name=\"port\" direction=\"in\"/>\n"
              "   <arg type=\"v\" name=\"value\" direction=\"out\"/>\n"
              "  </method>\n"
              "  <method name=\"Write\">\n"
              "   <arg type=\"s\" name=\"port\" direction=\"in\"/>\n"
              "   <arg type=\"v\" name=\"value\" direction=\"in\"/>\n"
              "  </method>\n"
              "  <method name=\"Reconfigure\">\n"
              "   <arg type=\"s\" name=\"block\" direction=\"in\"/>\n"
              "   <arg type=\"a{sv}\" name=\"changes\" direction=\"in\"/>\n"
              "  </method>\n"
              "  <method name=\"Describe\">\n"
              "   <arg type=\"s\" name=\"description\" direction=\"out\"/>\n"
              "  </method>\n"
              "  <signal name=\"OutputChanged\">\n"
              "   <arg type=\"s\" name=\"port\"/>\n"
              "   <arg type=\"v\" name=\"value\"/>\n"
              "  </signal>\n"
              " </interface>\n");
    EXPECT_EQ(host.terminate().code, 0);
}

TEST_F(ControlName, OfEachOfTwoHostsLeadsToItsOwnGraph) {
    TemporaryFolder second_folder;
    Process first(run_command(probes(relay), {"--bus", bus(), "--control"}));
    Process second(Words{FENWA_PROGRAM, "run",
                         second_folder.write("graph.toml", probes("[blocks.other]\n"
                                                                  "type = \"Relay\"\n")),
                         "--plugin-dir", FENWA_TEST_PLUGINS, "--format", "json", "--bus", bus(),
                         "--control=com.example.Second"});
    ASSERT_TRUE(first.wait_for_text("\"ready\""));
    ASSERT_TRUE(second.wait_for_text("\"ready\""));
    const ControlClient of_first(bus());
    const ControlClient of_second(bus(), "com.example.Second");
    EXPECT_EQ(of_first.write("r.int", "i", 1), "ok");
    EXPECT_EQ(of_second.write("other.int", "i", 2), "ok");
    EXPECT_EQ(of_first.read("r.int"), "i 1");
    EXPECT_EQ(of_second.read("other.int"), "i 2");
    EXPECT_EQ(of_second.read("r.int"), "UnknownBlock: no block 'r' in the graph");
    EXPECT_EQ(first.terminate().code, 0);
    EXPECT_EQ(second.terminate().code, 0);
}

TEST_F(ControlName, IsNotOwnedUnlessItIsAskedFor) {
    Process host(
        run_command(probes("[bus]\nnames = [\"com.example.Blocks\"]\n" + relay), {"--bus", bus()}));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    BusListener listener(bus());
    EXPECT_FALSE(listener.has_owner(standard_name));
    EXPECT_EQ(ControlClient(bus(), "com.example.Blocks").read("r.int"),
              "org.freedesktop.DBus.Error.UnknownObject: Unknown object "
              "'/com/tarlo/Fenwa/Host1'.");
    EXPECT_EQ(host.terminate().code, 0);
}

TEST_F(ControlName, BelongsToAConnectionOfItsOwn) {
    Process host(run_command(probes("[bus]\nnames = [\"com.example.Blocks\"]\n" + relay),
                             {"--bus", bus(), "--control"}));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    EXPECT_EQ(ControlClient(bus()).read("r.int"), "i 0");
    EXPECT_EQ(ControlClient(bus(), "com.example.Blocks").read("r.int"),
              "org.freedesktop.DBus.Error.UnknownObject: Unknown object "
              "'/com/tarlo/Fenwa/Host1'.");
    EXPECT_EQ(host.terminate().code, 0);
    EXPECT_TRUE(BusListener(bus()).loses_owner(standard_name));
}

TEST_F(ControlName, OfSomebodyElseEndsTheStart) {
    BusListener owner(bus());
    owner.own(standard_name);
    const Ended ended = run(probes("[blocks.p]\ntype = \"Probe\"\n"), {"--control"});
    EXPECT_EQ(ended.code, 69);
    EXPECT_EQ(ended.err,
              "fenwa: cannot own the bus name 'com.tarlo.Fenwa.Host1': another "
              "connection owns it\n");
    EXPECT_EQ(messages(ended.out), "");
    EXPECT_EQ(lines_with(ended.out, "\"ready\""), "");
    EXPECT_EQ(lines_with(without_times(ended.out), "\"exit\""),
              "{\"event\":\"exit\",\"time\":0,\"status\":69}\n");
}

}  // namespace
}  // namespace test
