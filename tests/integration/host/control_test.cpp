#include <gmock/gmock.h>

#include <limits>
#include <sstream>

#include "tests/integration/host/control_client.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

class ControlInterface : public HostTest {
  protected:
    Words control_command(const std::string& lines) const {
        return run_command(probes(lines), {"--bus", bus(), "--control"});
    }
};

std::string connect(const std::string& from, const std::string& to) {
    return "[[connections]]\nfrom = \"" + from + "\"\nto = \"" + to + "\"\n";
}

const std::string sink = "[blocks.s]\ntype = \"Sink\"\n";
const std::string relay = "[blocks.r]\ntype = \"Relay\"\n";
const std::string terminated = "[blocks.t]\ntype = \"Terminated\"\nsettings = \"every type\"\n";

TEST_F(ControlInterface, ReadsEveryInputAndOutput) {
    Process host(control_command("[blocks.v]\ntype = \"Values\"\n" + sink + terminated +
                                 connect("v.int", "s.int") + connect("v.float", "t.ratio")));
    ASSERT_TRUE(host.wait_for_text(R"("port":"double","type":"double","value":2.0)"));
    const ControlClient client(bus());
    EXPECT_EQ(client.read("v.float"), "d 2");
    EXPECT_EQ(client.read("v.bool"), "b true");
    EXPECT_EQ(client.read("v.double"), "d 2");
    EXPECT_EQ(client.read("v.int"), "i -7");
    EXPECT_EQ(client.read("v.tick"), "(tt) 9007199254740993 250");
    EXPECT_EQ(client.read("s.int"), "i -7");
    EXPECT_EQ(client.read("s.double"), "d 0");
    EXPECT_EQ(client.read("s.bool"), "b false");
    EXPECT_EQ(client.read("s.tick"), "(tt) 0 0");
    EXPECT_EQ(client.read("t.own"), "d 0");
    EXPECT_EQ(client.read("t.level"), "d 5");
    EXPECT_EQ(client.read("t.limit"), "i -3");
    EXPECT_EQ(client.read("t.ok"), "b true");
    EXPECT_EQ(client.read("t.ratio"), "d 2");
    EXPECT_EQ(host.terminate().code, 0);
}

TEST_F(ControlInterface, WriteRunsABlockAsADeliveryDoes) {
    Process host(control_command(sink));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    const ControlClient client(bus());
    const auto runs = [&host] { return host.wait_for_text("s: run").value_or("no run"); };
    const auto run = [](const std::string& inputs) {
        return "{\"event\":\"log\",\"time\":0,\"level\":4,\"message\":\"s: run " + inputs + "\"}";
    };
    EXPECT_EQ(client.write("s.double", "d", 2.5), "ok");
    EXPECT_EQ(without_times(runs()),
              run("double!=2.5 other=0 quiet=0 float=0 int=0 bool=false tick=0 point=0"));
    // Takes the value without making the block run; the next run finds it.
    EXPECT_EQ(client.write("s.quiet", "d", -0.5), "ok");
    EXPECT_EQ(client.read("s.quiet"), "d -0.5");
    EXPECT_EQ(client.write("s.int", "i", -2147483648), "ok");
    EXPECT_EQ(without_times(runs()),
              run("double=2.5 other=0 quiet!=-0.5 float=0 int!=-2147483648 bool=false tick=0 "
                  "point=0"));
    EXPECT_EQ(client.write("s.bool", "b", 1), "ok");
    EXPECT_EQ(without_times(runs()),
              run("double=2.5 other=0 quiet=-0.5 float=0 int=-2147483648 bool!=true tick=0 "
                  "point=0"));
    // The same value is a new value too.
    EXPECT_EQ(client.write("s.bool", "b", 1), "ok");
    EXPECT_EQ(without_times(runs()),
              run("double=2.5 other=0 quiet=-0.5 float=0 int=-2147483648 bool!=true tick=0 "
                  "point=0"));
    const Ended ended = host.terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
}

TEST_F(ControlInterface, WrittenNumbersAreThoseThatThePortReads) {
    Process host(control_command(relay));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    const ControlClient client(bus());
    EXPECT_EQ(client.write("r.float", "d", 36.6), "ok");  // the nearest float
    EXPECT_EQ(client.read("r.float"), "d 36.599998474121094");
    EXPECT_EQ(client.write("r.float", "i", 16777217), "ok");
    EXPECT_EQ(client.read("r.float"), "d 16777216");
    EXPECT_EQ(client.write("r.double", "i", 2147483647), "ok");
    EXPECT_EQ(client.read("r.double"), "d 2147483647");
    for (const double special :
         {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
          -std::numeric_limits<double>::infinity(), -0.0}) {
        for (const char* port : {"r.double", "r.float"}) {
            EXPECT_EQ(client.write(port, "d", special), "ok");
            std::ostringstream text;
            text << "d " << special;
            EXPECT_EQ(client.read(port), text.str());
        }
    }
    EXPECT_EQ(host.terminate().code, 0);
}

TEST_F(ControlInterface, WritesInputsThatTheHostProvidesAndRunsNothing) {
    Process host(control_command(terminated));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    const ControlClient client(bus());
    EXPECT_EQ(client.write("t.level", "d", 7.5), "ok");
    EXPECT_EQ(client.read("t.level"), "d 7.5");
    EXPECT_EQ(client.write("t.ok", "b", 0), "ok");
    EXPECT_EQ(client.read("t.ok"), "b false");
    EXPECT_EQ(client.read("t.limit"), "i -3");
    EXPECT_EQ(client.write("t.own", "d", 1.0), "ok");
    EXPECT_TRUE(host.wait_for_text("t: run"));
    const Ended ended = host.terminate();
    EXPECT_EQ(messages(ended.out), "t: run, with the inputs own\n");
}

TEST_F(ControlInterface, RefusesWithASentence) {
    Process host(control_command("[blocks.v]\ntype = \"Values\"\n" + sink + terminated +
                                 connect("v.double", "s.double") + connect("v.int", "t.limit")));
    ASSERT_TRUE(host.wait_for_text(R"("port":"double","type":"double","value":2.0)"));
    const ControlClient client(bus());
    EXPECT_EQ(client.read("sink"), "UnknownPort: 'sink' is not of the form BLOCK.PORT");
    EXPECT_EQ(client.read(".a"), "UnknownPort: '.a' is not of the form BLOCK.PORT");
    EXPECT_EQ(client.read("w.double"), "UnknownBlock: no block 'w' in the graph");
    EXPECT_EQ(client.read("s.duoble"),
              "UnknownPort: the block 's' has no port 'duoble'; did you mean 'double'?");
    EXPECT_EQ(client.read("v.xyzzy"),
              "UnknownPort: the block 'v' has no port 'xyzzy'; it has: 'float', 'bool', 'double', "
              "'int', 'tick', 'point'");
    EXPECT_EQ(client.read("t.lvel"),
              "UnknownPort: the block 't' has no port 'lvel'; did you mean 'level'?");
    EXPECT_EQ(client.read("v.point"),
              "WrongType: 'v.point' holds a value of a datatype that the host does not know");
    EXPECT_EQ(client.write("w.double", "d", 1.0), "UnknownBlock: no block 'w' in the graph");
    EXPECT_EQ(client.write("s.flaot", "d", 1.0),
              "UnknownPort: the block 's' has no input 'flaot'; did you mean 'float'?");
    EXPECT_EQ(client.write("v.double", "d", 1.0),
              "UnknownPort: 'v.double' is an output, not an input");
    EXPECT_EQ(client.write("s.double", "d", 1.0),
              "ConnectedInput: 's.double' is connected to 'v.double'");
    EXPECT_EQ(client.write("t.limit", "i", 1), "ConnectedInput: 't.limit' is connected to 'v.int'");
    EXPECT_EQ(client.write("s.tick", "s", "x"),
              "WrongType: 's.tick' takes timersource, which cannot be written");
    EXPECT_EQ(client.write("s.point", "i", 1),
              "WrongType: 's.point' takes /example/geometry.p/point, which cannot be written");
    EXPECT_EQ(client.write("s.int", "d", 1.0),
              "WrongType: 's.int' takes int, which is of the D-Bus type 'i'");
    EXPECT_EQ(client.write("s.int", "x", std::int64_t{1}),
              "WrongType: 's.int' takes int, which is of the D-Bus type 'i'");
    EXPECT_EQ(client.write("s.bool", "i", 1),
              "WrongType: 's.bool' takes bool, which is of the D-Bus type 'b'");
    EXPECT_EQ(client.write("s.float", "s", "1.0"),
              "WrongType: 's.float' takes float, which is of the D-Bus type 'd'");
    EXPECT_EQ(client.write("s.other", "b", 1),
              "WrongType: 's.other' takes double, which is of the D-Bus type 'd'");
    EXPECT_EQ(client.read("s.int"), "i 0");
    EXPECT_EQ(client.read("s.other"), "d 0");
    EXPECT_EQ(host.terminate().code, 0);
}

TEST_F(ControlInterface, QuotesALongNameOrValueInPart) {
    Process host(control_command(sink + "[blocks.l]\ntype = \"Settled\"\n"));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    const ControlClient client(bus());
    const std::string name(8 << 20, 'n');
    const std::string shown = "'" + std::string(150, 'n') + "…" + std::string(50, 'n') + "'";
    EXPECT_EQ(client.read(name), "UnknownPort: " + shown + " is not of the form BLOCK.PORT");
    EXPECT_EQ(client.read(name + ".a"), "UnknownBlock: no block " + shown + " in the graph");
    EXPECT_EQ(client.read("s." + name),
              "UnknownPort: the block 's' has no port " + shown +
                  "; it has: 'double', 'other', 'quiet', 'float', 'int', 'bool', 'tick', 'point'");
    EXPECT_EQ(client.call("Reconfigure", "sa{sv}", name.c_str(), 0),
              "UnknownBlock: no block " + shown + " in the graph");
    EXPECT_LT(client.call("Reconfigure", "sa{sv}", "l", 1, name.c_str(), "d", 1.0).size(), 1100U);
    EXPECT_LT(client.call("Reconfigure", "sa{sv}", "l", 1, "level", "s", name.c_str()).size(),
              1100U);
    EXPECT_EQ(client.read("s.int"), "i 0");
    EXPECT_EQ(host.terminate().code, 0);
}

TEST_F(ControlInterface, SuggestsTheNearestBlock) {
    Process host(control_command("[blocks.\"the.reader\"]\ntype = \"Relay\"\n"));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    const ControlClient client(bus());
    EXPECT_EQ(client.read("the.raeder.double"),
              "UnknownBlock: no block 'the.raeder' in the graph; did you mean 'the.reader'?");
    EXPECT_EQ(client.read("the.reader.double"), "d 0");
    EXPECT_EQ(host.terminate().code, 0);
}

TEST_F(ControlInterface, DescribesTheGraph) {
    Process host(control_command(
        terminated +
        "[blocks.c]\ntype = \"Counter\"\n[blocks.m]\ntype = \"Timer\"\n"
        "interval = 2000000000\n[blocks.v]\ntype = \"Values\"\nlist = [\"a\", \"b\"]\n"
        "[blocks.s]\ntype = \"Source\"\nin_start = 3\nfake.deep = 0.5\n" +
        connect("m.out", "c.tick") + connect("s.out", "t.level")));
    ASSERT_TRUE(host.wait_for_text(R"("port":"double","type":"double","value":2.0)"));
    const ControlClient client(bus());
    EXPECT_EQ(client.write("t.own", "d", std::numeric_limits<double>::quiet_NaN()), "ok");
    EXPECT_EQ(
        client.describe(),
        R"({"blocks":[{"name":"t","type":"Terminated","settings":{"settings":"every type"},)"
        R"("inputs":[{"name":"own","type":"double","triggers":true,"value":"nan"}],)"
        R"("terminated_inputs":[{"name":"level","type":"double","value":3.0},)"
        R"({"name":"limit","type":"int","value":-3},{"name":"ratio","type":"float","value":0.5},)"
        R"({"name":"ok","type":"bool","value":true},)"
        R"({"name":"tick","type":"timersource","value":{"ticks":0,"period_ms":0}}],"outputs":[],)"
        R"("exports":[],"services":[]},)"
        R"({"name":"c","type":"Counter","settings":{},)"
        R"("inputs":[{"name":"tick","type":"timersource","triggers":true,)"
        R"("value":{"ticks":0,"period_ms":0}}],"terminated_inputs":[],)"
        R"("outputs":[{"name":"out","type":"double","value":0.0}],)"
        R"("exports":[],"services":[]},)"
        R"({"name":"m","type":"Timer","settings":{"interval":2000000000},"inputs":[],)"
        R"("terminated_inputs":[],"outputs":[{"name":"out","type":"timersource",)"
        R"("value":{"ticks":0,"period_ms":0}}],)"
        R"("exports":[],"services":[]},)"
        R"({"name":"v","type":"Values","settings":{"list":["a","b"]},"inputs":[],)"
        R"("terminated_inputs":[],"outputs":[{"name":"float","type":"float","value":2.0},)"
        R"({"name":"bool","type":"bool","value":true},{"name":"double","type":"double","value":2.0},)"
        R"({"name":"int","type":"int","value":-7},{"name":"tick","type":"timersource",)"
        R"("value":{"ticks":9007199254740993,"period_ms":250}},)"
        R"({"name":"point","type":"/example/geometry.p/point","value":null}],)"
        R"("exports":[],"services":[]},)"
        R"({"name":"s","type":"Source","settings":{"in_start":3,"fake.deep":0.5},"inputs":[],)"
        R"("terminated_inputs":[],"outputs":[{"name":"out","type":"double","value":3.0}],)"
        R"("exports":[],"services":[]}],)"
        R"("connections":[{"from":"m.out","to":"c.tick"},{"from":"s.out","to":"t.level"}]})");
    EXPECT_EQ(host.terminate().code, 0);
}

TEST_F(ControlInterface, DescribesWhatTheBlocksHaveToDoWithTheBus) {
    Process host(
        control_command("[blocks.c]\ntype = \"Caller\"\ndestination = "
                        "\"com.example.Absent\"\n[blocks.e]\ntype = \"Exporter\"\n"
                        "path = \"/com/example/Echo\"\n"));
    ASSERT_TRUE(host.wait_for_text("c: got "));
    const ControlClient client(bus());
    const std::string described = client.describe();
    EXPECT_THAT(described, testing::HasSubstr(R"("exports":[],"services":["com.example.Absent"])"));
    EXPECT_THAT(described,
                testing::HasSubstr(R"("exports":[{"path":"/com/example/Echo",)"
                                   R"("interface":"com.example.Echo1"}],"services":[])"));
    EXPECT_EQ(host.terminate().code, 0);
}

TEST_F(ControlInterface, SignalsEveryNewValueInOrderAndNoneOfAnUnknownDatatype) {
    Process host(control_command(relay));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    ControlClient client(bus());
    client.listen();
    EXPECT_EQ(client.write("r.float", "d", 36.6), "ok");
    EXPECT_EQ(client.write("r.double", "d", 36.6), "ok");
    EXPECT_EQ(client.write("r.int", "i", -7), "ok");
    EXPECT_EQ(client.write("r.bool", "b", 1), "ok");
    EXPECT_EQ(client.write("r.bool", "b", 1), "ok");
    const std::vector<std::string> all{"r.float_out d 36.599998474121094",
                                       "r.double_out d 36.600000000000001", "r.int_out i -7",
                                       "r.bool_out b true", "r.bool_out b true"};
    EXPECT_EQ(client.changes(all.size()), all);
    EXPECT_EQ(host.terminate().code, 0);
}

TEST_F(ControlInterface, SignalsTicksWithTheirNumberAndPeriod) {
    Process host(control_command("[blocks.m]\ntype = \"Timer\"\ninterval = 20\n"));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    ControlClient client(bus());
    client.listen();
    const std::vector<std::string>& ticks = client.changes(3);
    ASSERT_GE(ticks.size(), 3U);
    unsigned long first = 0;
    ASSERT_EQ(std::sscanf(ticks[0].c_str(), "m.out (tt) %lu 20", &first), 1) << ticks[0];
    EXPECT_EQ(ticks[1], "m.out (tt) " + std::to_string(first + 1) + " 20");
    EXPECT_EQ(ticks[2], "m.out (tt) " + std::to_string(first + 2) + " 20");
    EXPECT_EQ(host.terminate().code, 0);
}

}  // namespace
}  // namespace test
