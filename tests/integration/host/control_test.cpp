#include <gmock/gmock.h>

#include <limits>
#include <sstream>

#include "tests/integration/host/control_client.hpp"
#include "tests/integration/host/host_test.hpp"
#include "tests/support/json_printing.hpp"

namespace test {
namespace {

/// A host with the control interface, and a client of it.
class ControlInterface : public HostTest {
  protected:
    void start(const std::string& graph, const std::string& sign = "\"ready\"") {
        HostTest::start(graph, {"--control"}, sign);
    }
    void expect_reads(const std::map<std::string, std::string>& values) const {
        for (const auto& [port, value] : values)
            EXPECT_EQ(client_.read(port), value) << port;
    }

    ControlClient client_{bus()};
};

const std::string sink = block("s", "Sink");
const std::string relay = block("r", "Relay");
const std::string values = block("v", "Values");
const std::string terminated = block("t", "Terminated", "settings = \"every type\"");
const std::string last_value = R"("port":"double","type":"double","value":2.0)";

TEST_F(ControlInterface, ReadsEveryInputAndOutput) {
    start(
        values + sink + terminated +
            R"(connections = [{from = "v.int", to = "s.int"}, {from = "v.float", to = "t.ratio"}])",
        last_value);
    expect_reads({{"v.float", "d 2"},
                  {"v.bool", "b true"},
                  {"v.double", "d 2"},
                  {"v.int", "i -7"},
                  {"v.tick", "(tt) 9007199254740993 250"},
                  {"s.int", "i -7"},
                  {"s.double", "d 0"},
                  {"s.bool", "b false"},
                  {"s.tick", "(tt) 0 0"},
                  {"t.own", "d 0"},
                  {"t.level", "d 5"},
                  {"t.limit", "i -3"},
                  {"t.ok", "b true"},
                  {"t.ratio", "d 2"}});
}

TEST_F(ControlInterface, WriteRunsABlockAsADeliveryDoes) {
    start(sink);
    const auto expect_run = [this](const std::string& inputs) {
        EXPECT_EQ(without_times(host().wait_for_text("s: run").value_or("no run")) + '\n',
                  log_line("s", "s: run " + inputs));
    };
    EXPECT_EQ(client_.write("s.double", "d", 2.5), "ok");
    expect_run("double!=2.5 other=0 quiet=0 float=0 int=0 bool=false tick=0 point=0");
    // Takes the value without making the block run; the next run finds it.
    EXPECT_EQ(client_.write("s.quiet", "d", -0.5), "ok");
    EXPECT_EQ(client_.read("s.quiet"), "d -0.5");
    EXPECT_EQ(client_.write("s.int", "i", -2147483648), "ok");
    expect_run("double=2.5 other=0 quiet!=-0.5 float=0 int!=-2147483648 bool=false tick=0 point=0");
    // The same value is a new value too.
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(client_.write("s.bool", "b", 1), "ok");
        expect_run(
            "double=2.5 other=0 quiet=-0.5 float=0 int=-2147483648 bool!=true tick=0 point=0");
    }
    stop();
}

TEST_F(ControlInterface, WrittenNumbersAreThoseThatThePortReads) {
    start(relay);
    EXPECT_EQ(client_.write("r.float", "d", 36.6), "ok");  // the nearest float
    EXPECT_EQ(client_.read("r.float"), "d 36.599998474121094");
    EXPECT_EQ(client_.write("r.float", "i", 16777217), "ok");
    EXPECT_EQ(client_.read("r.float"), "d 16777216");
    EXPECT_EQ(client_.write("r.double", "i", 2147483647), "ok");
    EXPECT_EQ(client_.read("r.double"), "d 2147483647");
    constexpr double infinity = std::numeric_limits<double>::infinity();
    for (const double special :
         {std::numeric_limits<double>::quiet_NaN(), infinity, -infinity, -0.0}) {
        std::ostringstream text;
        text << "d " << special;
        for (const char* port : {"r.double", "r.float"}) {
            EXPECT_EQ(client_.write(port, "d", special), "ok");
            EXPECT_EQ(client_.read(port), text.str());
        }
    }
}

TEST_F(ControlInterface, WritesInputsThatTheHostProvidesAndRunsNothing) {
    start(terminated);
    EXPECT_EQ(client_.write("t.level", "d", 7.5), "ok");
    EXPECT_EQ(client_.write("t.ok", "b", 0), "ok");
    expect_reads({{"t.level", "d 7.5"}, {"t.ok", "b false"}, {"t.limit", "i -3"}});
    EXPECT_EQ(client_.write("t.own", "d", 1.0), "ok");
    EXPECT_TRUE(host().wait_for_text("t: run"));
    EXPECT_EQ(messages(stop()), "t: run, with the inputs own\n");
}

TEST_F(ControlInterface, RefusesWithASentence) {
    start(values + sink + terminated + block("\"the.reader\"", "Relay") +
              R"(connections = [{from = "v.double", to = "s.double"},
                                {from = "v.int", to = "t.limit"}])",
          last_value);
    expect_reads(
        {{"sink", "UnknownPort: 'sink' is not of the form BLOCK.PORT"},
         {".a", "UnknownPort: '.a' is not of the form BLOCK.PORT"},
         {"w.double", "UnknownBlock: no block 'w' in the graph"},
         {"the.raeder.double",
          "UnknownBlock: no block 'the.raeder' in the graph; did you mean 'the.reader'?"},
         {"the.reader.double", "d 0"},
         {"s.duoble", "UnknownPort: the block 's' has no port 'duoble'; did you mean 'double'?"},
         {"v.xyzzy",
          "UnknownPort: the block 'v' has no port 'xyzzy'; it has: 'float', 'bool', 'double', "
          "'int', 'tick', 'point'"},
         {"t.lvel", "UnknownPort: the block 't' has no port 'lvel'; did you mean 'level'?"},
         {"v.point",
          "WrongType: 'v.point' holds a value of a datatype that the host does not "
          "know"}});
    EXPECT_EQ(client_.write("w.double", "d", 1.0), "UnknownBlock: no block 'w' in the graph");
    EXPECT_EQ(client_.write("s.flaot", "d", 1.0),
              "UnknownPort: the block 's' has no input 'flaot'; did you mean 'float'?");
    EXPECT_EQ(client_.write("v.double", "d", 1.0),
              "UnknownPort: 'v.double' is an output, not an input");
    EXPECT_EQ(client_.write("s.double", "d", 1.0),
              "ConnectedInput: 's.double' is connected to 'v.double'");
    EXPECT_EQ(client_.write("t.limit", "i", 1),
              "ConnectedInput: 't.limit' is connected to 'v.int'");
    EXPECT_EQ(client_.write("s.tick", "s", "x"),
              "WrongType: 's.tick' takes timersource, which cannot be written");
    EXPECT_EQ(client_.write("s.point", "i", 1),
              "WrongType: 's.point' takes /example/geometry.p/point, which cannot be written");
    const std::string of_type = ", which is of the D-Bus type ";
    EXPECT_EQ(client_.write("s.int", "d", 1.0), "WrongType: 's.int' takes int" + of_type + "'i'");
    EXPECT_EQ(client_.write("s.int", "x", std::int64_t{1}),
              "WrongType: 's.int' takes int" + of_type + "'i'");
    EXPECT_EQ(client_.write("s.bool", "i", 1), "WrongType: 's.bool' takes bool" + of_type + "'b'");
    EXPECT_EQ(client_.write("s.float", "s", "1.0"),
              "WrongType: 's.float' takes float" + of_type + "'d'");
    EXPECT_EQ(client_.write("s.other", "b", 1),
              "WrongType: 's.other' takes double" + of_type + "'d'");
    expect_reads({{"s.int", "i 0"}, {"s.other", "d 0"}});
}

TEST_F(ControlInterface, QuotesALongNameOrValueInPart) {
    start(sink + block("l", "Settled"));
    const std::string name(8 << 20, 'n');
    const std::string shown = "'" + std::string(150, 'n') + "…" + std::string(50, 'n') + "'";
    expect_reads(
        {{name, "UnknownPort: " + shown + " is not of the form BLOCK.PORT"},
         {name + ".a", "UnknownBlock: no block " + shown + " in the graph"},
         {"s." + name, "UnknownPort: the block 's' has no port " + shown +
                           "; it has: 'double', 'other', 'quiet', 'float', 'int', 'bool', 'tick', "
                           "'point'"}});
    EXPECT_EQ(client_.call("Reconfigure", "sa{sv}", name.c_str(), 0),
              "UnknownBlock: no block " + shown + " in the graph");
    EXPECT_LT(client_.call("Reconfigure", "sa{sv}", "l", 1, name.c_str(), "d", 1.0).size(), 1100U);
    EXPECT_LT(client_.call("Reconfigure", "sa{sv}", "l", 1, "level", "s", name.c_str()).size(),
              1100U);
    EXPECT_EQ(client_.read("s.int"), "i 0");
}

TEST_F(ControlInterface, DescribesTheGraph) {
    start(
        terminated + block("c", "Counter") + block("m", "Timer", "interval = 2000000000") +
            block("v", "Values", R"(list = ["a", "b"])") +
            block("s", "Source", "in_start = 3, fake.deep = 0.5") +
            R"(connections = [{from = "m.out", to = "c.tick"}, {from = "s.out", to = "t.level"}])",
        last_value);
    EXPECT_EQ(client_.write("t.own", "d", std::numeric_limits<double>::quiet_NaN()), "ok");
    common::Json description = common::parse_json(client_.describe(), "the description");
    for (common::Json& each : description.at("blocks"))
        EXPECT_EQ(each.erase("status"), 1U);
    EXPECT_EQ(common::json_line(description), joined_lines("description.json"));
}

TEST_F(ControlInterface, DescribesWhatTheBlocksHaveToDoWithTheBus) {
    start(block("c", "Caller", "destination = \"com.example.Absent\"") +
              block("e", "Exporter", "path = \"/com/example/Echo\""),
          "c: got ");
    EXPECT_THAT(
        client_.describe(),
        testing::AllOf(testing::HasSubstr(R"("exports":[],"services":["com.example.Absent"])"),
                       testing::HasSubstr(R"("exports":[{"path":"/com/example/Echo",)"
                                          R"("interface":"com.example.Echo1"}],"services":[])")));
}

TEST_F(ControlInterface, SignalsEveryNewValueInOrderAndNoneOfAnUnknownDatatype) {
    start(relay);
    client_.listen();
    EXPECT_EQ(client_.write("r.float", "d", 36.6), "ok");
    EXPECT_EQ(client_.write("r.double", "d", 36.6), "ok");
    EXPECT_EQ(client_.write("r.int", "i", -7), "ok");
    EXPECT_EQ(client_.write("r.bool", "b", 1), "ok");
    EXPECT_EQ(client_.write("r.bool", "b", 1), "ok");
    const std::vector<std::string> all{"r.float_out d 36.599998474121094",
                                       "r.double_out d 36.600000000000001", "r.int_out i -7",
                                       "r.bool_out b true", "r.bool_out b true"};
    EXPECT_EQ(client_.changes(all.size()), all);
}

TEST_F(ControlInterface, SignalsNothingUnlessASubscriberIsThere) {
    start(relay);
    client_.overhear();
    const auto relayed = [this](int value) {
        EXPECT_EQ(client_.write("r.int", "i", value), "ok");
        const std::string expected = "i " + std::to_string(value);
        client_.serve_until([&] { return client_.read("r.int_out") == expected; });
        // What the host has signalled has come before its answer.
        client_.serve_until([served = 0]() mutable { return ++served > 3; });
    };
    relayed(1);
    std::string name;
    {
        const ControlClient subscriber(bus());
        EXPECT_EQ(subscriber.call("Subscribe", ""), "ok");
        EXPECT_EQ(subscriber.call("Subscribe", ""), "ok");
        relayed(2);
        const char* unique = nullptr;
        common::check(sd_bus_get_unique_name(&subscriber.bus(), &unique), "name");
        name = unique;
    }
    client_.serve_until([&] {
        return sd_bus_call_method(&client_.bus(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                  "org.freedesktop.DBus", "GetNameOwner", nullptr, nullptr, "s",
                                  name.c_str()) < 0;
    });
    relayed(3);
    EXPECT_EQ(client_.changes(0), (std::vector<std::string>{"r.int_out i 2"}));
}

TEST_F(ControlInterface, SignalsTicksWithTheirNumberAndPeriod) {
    start(block("m", "Timer", "interval = 20"));
    client_.listen();
    const std::vector<std::string>& ticks = client_.changes(3);
    ASSERT_GE(ticks.size(), 3U);
    unsigned long first = 0;
    ASSERT_EQ(std::sscanf(ticks[0].c_str(), "m.out (tt) %lu 20", &first), 1) << ticks[0];
    EXPECT_EQ(ticks[1], "m.out (tt) " + std::to_string(first + 1) + " 20");
    EXPECT_EQ(ticks[2], "m.out (tt) " + std::to_string(first + 2) + " 20");
}

}  // namespace
}  // namespace test
