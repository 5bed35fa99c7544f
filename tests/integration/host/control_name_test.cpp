#include "tests/integration/host/bus_listener.hpp"
#include "tests/integration/host/control_client.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

/// The bus name of the control interface, and the interface itself.
class ControlName : public HostTest {};

const std::string standard_name = "com.tarlo.Fenwa.Host1";
const std::string relay = "bus.names = [\"com.example.Blocks\"]\n" + block("r", "Relay");
const std::string unknown_object =
    "org.freedesktop.DBus.Error.UnknownObject: Unknown object '/com/tarlo/Fenwa/Host1'.";

TEST_F(ControlName, LeadsToAnInterfaceThatCanBeIntrospected) {
    start(relay, {"--control"});
    const Ended seen = run_program({"busctl", "--address=" + bus(), "introspect", "--xml-interface",
                                    standard_name, "/com/tarlo/Fenwa/Host1"});
    EXPECT_EQ(seen.code, 0) << seen.err;
    const std::size_t begin = seen.out.find(" <interface name=\"" + standard_name + "\">");
    const std::string end = " </interface>\n";
    ASSERT_NE(begin, std::string::npos) << seen.out;
    EXPECT_EQ(seen.out.substr(begin, seen.out.find(end, begin) - begin + end.size()),
              R"( <interface name="com.tarlo.Fenwa.Host1">
  <method name="Read">
   <arg type="s" name="port" direction="in"/>
   <arg type="v" name="value" direction="out"/>
  </method>
  <method name="Write">
   <arg type="s" name="port" direction="in"/>
   <arg type="v" name="value" direction="in"/>
  </method>
  <method name="Reconfigure">
   <arg type="s" name="block" direction="in"/>
   <arg type="a{sv}" name="changes" direction="in"/>
   <arg type="as" name="warnings" direction="out"/>
  </method>
  <method name="Rebuild">
   <arg type="s" name="block" direction="in"/>
   <arg type="a{sv}" name="changes" direction="in"/>
   <arg type="as" name="warnings" direction="out"/>
  </method>
  <method name="Describe">
   <arg type="s" name="description" direction="out"/>
  </method>
  <method name="Subscribe">
  </method>
  <signal name="OutputChanged">
   <arg type="s" name="port"/>
   <arg type="v" name="value"/>
  </signal>
 </interface>
)");
}

TEST_F(ControlName, OfEachOfTwoHostsLeadsToItsOwnGraph) {
    start(block("r", "Relay"), {"--control"});
    const RunningHost second(
        run_command(block("other", "Relay"), {"--control=com.example.Second"}));
    const ControlClient of_first(bus());
    const ControlClient of_second(bus(), "com.example.Second");
    EXPECT_EQ(of_first.write("r.int", "i", 1), "ok");
    EXPECT_EQ(of_second.write("other.int", "i", 2), "ok");
    EXPECT_EQ(of_first.read("r.int"), "i 1");
    EXPECT_EQ(of_second.read("other.int"), "i 2");
    EXPECT_EQ(of_second.read("r.int"), "UnknownBlock: no block 'r' in the graph");
}

TEST_F(ControlName, IsNotOwnedUnlessItIsAskedFor) {
    start(relay);
    EXPECT_FALSE(BusListener(bus()).has_owner(standard_name));
    EXPECT_EQ(ControlClient(bus(), "com.example.Blocks").read("r.int"), unknown_object);
}

TEST_F(ControlName, BelongsToAConnectionOfItsOwn) {
    start(relay, {"--control"});
    EXPECT_EQ(ControlClient(bus()).read("r.int"), "i 0");
    EXPECT_EQ(ControlClient(bus(), "com.example.Blocks").read("r.int"), unknown_object);
    stop();
    EXPECT_TRUE(BusListener(bus()).loses_owner(standard_name));
}

TEST_F(ControlName, OfSomebodyElseEndsTheStart) {
    BusListener owner(bus());
    owner.own(standard_name);
    const Ended ended = run(block("p", "Probe"), {"--control"});
    expect_end(ended, 69,
               "fenwa: cannot own the bus name 'com.tarlo.Fenwa.Host1': another connection owns "
               "it\n");
    EXPECT_EQ(without_times(ended.out), exit_line(69));
}

}  // namespace
}  // namespace test
