#include <csignal>
#include <limits>
#include <sstream>

#include "tests/integration/host/control_client.hpp"
#include "tests/integration/host/host_test.hpp"
#include "tests/support/pattern.hpp"

namespace test {
namespace {

/// `fenwa read` and `fenwa write` beside a host that runs.
class ControlCommands : public HostTest {
  protected:
    static Ended on_bus(const Words& words, const std::string& address = bus()) {
        return fenwa(Words{words.front(), "--bus", address} +
                     Words(words.begin() + 1, words.end()));
    }
    static void expect_value(const std::string& port, const std::string& value) {
        const Ended ended = on_bus({"read", port});
        expect_end(ended);
        EXPECT_EQ(ended.out, value + "\n") << port;
    }
    static void expect_written(const std::string& port, const std::string& value) {
        const Ended ended = on_bus({"write", port, "--", value});
        expect_end(ended);
        EXPECT_EQ(ended.out, "");
    }
    static void expect_refused(const Words& words, const std::string& sentence, int code = 2) {
        const Ended ended = on_bus(words);
        expect_end(ended, code, "fenwa: " + sentence + "\n");
        EXPECT_EQ(ended.out, "");
    }
};

const std::string relay = block("r", "Relay");
const std::string sink = block("s", "Sink", "only = \"double\"");

TEST_F(ControlCommands, AllTakeColor) {
    start(relay, {"--control"});
    EXPECT_EQ(on_bus({"read", "r.int", "--color", "always"}).out, "\x1b[1m0\x1b[0m\n");
    EXPECT_EQ(on_bus({"read", "r.int", "--color=never"}).out, "0\n");
    expect_end(on_bus({"write", "r.int", "5", "--color=always"}));
    const Ended set = on_bus({"set", "r", "fires=true", "--color", "auto"});
    EXPECT_EQ(set.err.find("--color"), std::string::npos) << set.err;
    EXPECT_EQ(on_bus({"read", "r.int"}).out, "5\n");
}

TEST_F(ControlCommands, ReadPrintsTheValueAlone) {
    start(block("v", "Values") + sink, {"--control"},
          R"("port":"double","type":"double","value":2.0)");
    expect_value("v.double", "2.0");
    expect_value("v.float", "2.0");
    expect_value("v.bool", "true");
    expect_value("v.int", "-7");
    expect_value("v.tick", "{\"ticks\":9007199254740993,\"period_ms\":250}");
    expect_value("s.double", "0.0");
}

TEST_F(ControlCommands, ReadPrintsNamesAndValuesOfSeveralPorts) {
    start(block("v", "Values") + sink, {"--control"},
          R"("port":"double","type":"double","value":2.0)");
    const auto expect_lines = [](const Words& ports, const std::string& lines) {
        const Ended ended = on_bus(Words{"read"} + ports);
        expect_end(ended);
        EXPECT_EQ(ended.out, lines);
    };
    expect_lines({"v.*"}, R"(v.float = 2.0
v.bool = true
v.double = 2.0
v.int = -7
v.tick = {"ticks":9007199254740993,"period_ms":250}
v.point = </example/geometry.p/point>
)");
    expect_lines({"s.double", "v.int"}, "v.int = -7\ns.double = 0.0\n");
    expect_lines({"?.d*", "v.[di]*"}, "v.double = 2.0\nv.int = -7\ns.double = 0.0\n");
    EXPECT_EQ(on_bus({"read", "v.b*", "--color=always"}).out, "v.bool = \x1b[1mtrue\x1b[0m\n");
}

TEST_F(ControlCommands, ReadOfSeveralPortsRefusesANameThatNoPortHas) {
    start(relay, {"--control"});
    expect_refused({"read", "r.int", "r.duoble"},
                   "no port matches 'r.duoble'; did you mean 'r.double'?");
    expect_refused({"read", "x.*"}, "no port matches 'x.*'");
}

TEST_F(ControlCommands, WriteTakesTheValueAsThePortNeedsIt) {
    start(relay + block("t", "Terminated", "settings = \"monitor\""), {"--control"});
    struct {
        std::string port, typed, read;
    } const values[]{{"r.double", "36.6", "36.6"},
                     {"r.double", "5", "5.0"},
                     {"r.double", "-1e-3", "-0.001"},
                     {"r.double", "nan", "nan"},
                     {"r.double", "inf", "inf"},
                     {"r.double", "-inf", "-inf"},
                     {"r.double", "-0.0", "-0.0"},
                     {"r.float", "36.6", "36.599998474121094"},
                     {"r.float", "nan", "nan"},
                     {"r.float", "16777217", "16777216.0"},
                     {"r.int", "2147483647", "2147483647"},
                     {"r.int", "-2147483648", "-2147483648"},
                     {"r.bool", "true", "true"},
                     {"r.bool", "false", "false"},
                     {"t.temp_monitor_in", "false", "false"},
                     {"t.temp_monitor_in", "true", "true"}};
    for (const auto& [port, typed, read] : values) {
        expect_written(port, typed);
        expect_value(port, read);
    }
    EXPECT_EQ(on_bus({"write", "r.int", "-5"}).code, 0);  // without the --
    expect_value("r.int", "-5");
}

TEST_F(ControlCommands, WriteMakesTheBlockRun) {
    start(sink, {"--control"});
    expect_written("s.double", "2.5");
    EXPECT_TRUE(host().wait_for_text("s: run double!=2.5"));
}

TEST_F(ControlCommands, WrongValuesAreRefusedInTheWordsOfThePortsType) {
    start(relay + block("s", "Sink"), {"--control"});
    const auto refuse = [](const std::string& port, const Words& values, const std::string& why) {
        for (const std::string& value : values)
            expect_refused({"write", port, "--", value}, "'" + value + "' is not " + why);
    };
    refuse("r.int",
           {"2147483648", "-2147483649", "1.0", "1e3", "one", "", " 1", "1 ", "0x10", "+1",
            "99999999999999999999"},
           "an int; expected a whole number from -2147483648 to 2147483647");
    for (const char* port : {"r.double", "r.float"})
        refuse(port, {"1e999", "one", "", "1,5", "true"},
               "a number in the range of a double; nan, inf and -inf are accepted");
    refuse("r.bool", {"1", "True", "yes", ""}, "a bool; expected true or false");
    expect_value("r.int", "0");
    expect_value("r.double", "0.0");
    expect_value("r.bool", "false");
    expect_refused({"write", "s.tick", "1"}, "'s.tick' takes timersource, which cannot be written");
}

TEST_F(ControlCommands, WhatTheHostRefusesIsAWrongCommandLine) {
    start(relay, {"--control"});
    expect_refused({"read", "r.duoble"},
                   "the block 'r' has no port 'duoble'; did you mean 'double'?");
    expect_refused({"write", "r.int_out", "1"}, "'r.int_out' is an output, not an input");
    expect_refused({"read", "r.\xff"}, "the arguments are not valid UTF-8");
}

TEST_F(ControlCommands, FindTheHostByItsName) {
    start(relay, {"--control=com.example.Named"});
    EXPECT_EQ(on_bus({"read", "r.int", "--control", "com.example.Named"}).out, "0\n");
    expect_end(on_bus({"write", "r.int", "3", "--control=com.example.Named"}));
    EXPECT_EQ(on_bus({"read", "r.int", "--control=com.example.Named"}).out, "3\n");
    const std::string none =
        "no host owns 'com.tarlo.Fenwa.Host1' on the bus at '" + bus() +
        "'; start one with 'fenwa run GRAPH --control', or name its bus with --bus";
    for (const Words& words :
         {Words{"read", "r.int"}, Words{"write", "r.int", "1"}, Words{"set", "r", "level=2"},
          Words{"watch"}, Words{"graph", "--control"}}) {
        expect_refused(words, none, 69);
        const Ended without_bus = on_bus(words, "unix:path=/no/bus");
        expect_end(without_bus, 69,
                   "fenwa: cannot reach the bus at 'unix:path=/no/bus': No such file or directory; "
                   "name another bus with --bus, or give a program its own: fenwa-camera run "
                   "--private-bus -- PROGRAM\n");
        EXPECT_EQ(without_bus.out, "");
    }
}

TEST_F(ControlCommands, UseTheSystemBusUnlessToldOtherwise) {
    start(relay, {"--control"});
    EXPECT_EQ(fenwa({"read", "r.int"}, {{"DBUS_SYSTEM_BUS_ADDRESS", bus()}}).out, "0\n");
}

TEST_F(ControlCommands, ReadThatCannotBePrintedIsNoSuccess) {
    start(relay, {"--control"});
    expect_end(run_program({"sh", "-c", "exec \"$0\" read r.int --bus \"$1\" > /dev/full",
                            FENWA_PROGRAM, bus()}),
               69, "fenwa: cannot write to stdout: No space left on device\n");
}

/// `fenwa watch` beside a host that runs.
class ControlWatch : public HostTest {
  protected:
    static Words watch(const std::string& format) {
        return {FENWA_PROGRAM, "watch", "--bus", bus(), "--format", format};
    }
};

const std::string timer = block("m", "Timer", "interval = 20");

TEST_F(ControlWatch, PrintsEachValueInOrderAsTheRunDoes) {
    start(relay, {"--control"});
    const ControlClient client(bus());
    EXPECT_EQ(client.write("r.double", "d", 1.0), "ok");  // before anybody watches
    ASSERT_TRUE(host().wait_for_text("\"output\""));
    RunningHost watching(watch("json"));
    std::string expected =
        output_line("r", "double_out", "double", "1.0") +
        output_line("r", "float_out", "float", "0.0") + output_line("r", "int_out", "int", "0") +
        output_line("r", "bool_out", "bool", "false") +
        output_line("r", "point_out", "/example/geometry.p/point", "null") + ready_line;
    for (int i = 2; i < 50; ++i) {
        EXPECT_EQ(client.write("r.int", "i", i), "ok");
        expected += output_line("r", "int_out", "int", std::to_string(i));
    }
    EXPECT_EQ(client.write("r.float", "d", 36.6), "ok");
    EXPECT_EQ(client.write("r.bool", "b", 1), "ok");
    EXPECT_EQ(client.write("r.double", "d", -std::numeric_limits<double>::infinity()), "ok");
    ASSERT_TRUE(watching.wait_for_text("-inf"));
    const Ended watched = watching.terminate();
    expect_end(watched);
    EXPECT_EQ(without_times(watched.out),
              expected + output_line("r", "float_out", "float", "36.599998474121094") +
                  output_line("r", "bool_out", "bool", "true") +
                  output_line("r", "double_out", "double", "\"-inf\"") + exit_line(0));
}

TEST_F(ControlWatch, PrintsTextWithoutTheTicksOfTimers) {
    start(relay + timer, {"--control"});
    Process watching(watch("text"));
    ASSERT_TRUE(watching.wait_for_error_text("fenwa: ready"));
    ASSERT_TRUE(host().wait_for_text("\"timersource\""));
    const ControlClient client(bus());
    EXPECT_EQ(client.write("r.double", "d", 36.5), "ok");
    EXPECT_EQ(client.write("r.bool", "b", 1), "ok");
    ASSERT_TRUE(watching.wait_for_text("bool_out = true"));
    watching.send_signal(SIGINT);
    const Ended watched = watching.wait();
    expect_end(watched, 0, "fenwa: ready\nfenwa: stopped\n");
    static const Pattern time("(^|\n) *[0-9]+\\.[0-9]{3}  ");
    EXPECT_EQ(time.replace(watched.out, "$1TIME  "),
              R"(TIME  r.double_out = 0.0
TIME  r.float_out = 0.0
TIME  r.int_out = 0
TIME  r.bool_out = false
TIME  r.point_out = </example/geometry.p/point>
TIME  r.double_out = 36.5
TIME  r.bool_out = true
)");
}

TEST_F(ControlWatch, PrintsTheOutputsThatItIsAskedFor) {
    start(relay + timer, {"--control"});
    Process watching(watch("text") + Words{"--timestamps=none", "r.[bi]*", "*.float_out"});
    ASSERT_TRUE(watching.wait_for_error_text("fenwa: ready"));
    const ControlClient client(bus());
    EXPECT_EQ(client.write("r.double", "d", 36.5), "ok");
    EXPECT_EQ(client.write("r.bool", "b", 1), "ok");
    ASSERT_TRUE(watching.wait_for_text("bool_out = true"));
    watching.send_signal(SIGINT);
    EXPECT_EQ(watching.wait().out,
              "r.float_out = 0.0\nr.int_out = 0\nr.bool_out = false\nr.bool_out = true\n");
}

TEST_F(ControlWatch, PrintsTicksAsTextWhenItIsAskedForThem) {
    start(timer, {"--control"});
    Process watching(watch("text") + Words{"m.out"});
    EXPECT_TRUE(watching.wait_for_text("m.out = {\"ticks\":"));
    EXPECT_EQ(watching.terminate().code, 0);
}

TEST_F(ControlWatch, RefusesANameThatNoOutputHas) {
    start(relay, {"--control"});
    const Ended ended = run_program(watch("text") + Words{"r.int_out", "r.duoble_out"});
    expect_end(ended, 2, "fenwa: no output matches 'r.duoble_out'; did you mean 'r.double_out'?\n");
    EXPECT_EQ(ended.out, "");
}

TEST_F(ControlWatch, NeitherLosesNorRepeatsAValueThatComesAtTheBegin) {
    start(block("t", "Timer", "interval = 1") + block("c", "Counter") +
              R"(connections = [{from = "t.out", to = "c.tick"}])",
          {"--control"});
    for (int i = 0; i < 5; ++i) {
        Process watching(watch("text") + Words{"--timestamps=none", "c.out"});
        ASSERT_TRUE(watching.wait_for_error_text("fenwa: ready"));
        for (int line = 0; line < 20; ++line)
            ASSERT_TRUE(watching.wait_for_text("c.out"));
        watching.send_signal(SIGINT);
        std::istringstream lines(watching.wait().out);
        double last = 0.0;
        for (std::string line; std::getline(lines, line);) {
            ASSERT_TRUE(line.starts_with("c.out = ")) << line;
            const double value = std::stod(line.substr(8));
            ASSERT_TRUE(last == 0.0 || value == last + 1.0) << last << " before " << value;
            last = value;
        }
        EXPECT_GT(last, 0.0);
    }
}

TEST_F(ControlWatch, OutputThatNoSignalCarriesIsReportedOnce) {
    start(block("o", "OddlyNamed"), {"--control"});
    ControlClient client(bus());
    client.listen();
    EXPECT_EQ(client.write("o.in", "d", 1.0), "ok");
    EXPECT_EQ(client.write("o.in", "d", 2.0), "ok");
    ASSERT_TRUE(host().wait_for_error_text("OutputChanged"));
    expect_end(host().terminate(), 0,
               "fenwa: cannot emit OutputChanged for 'o.odd\\xff'; watchers miss values: Invalid "
               "argument\n");
}

TEST_F(ControlWatch, PrintsTicksAsJson) {
    start(timer, {"--control"});
    RunningHost watching(watch("json"));
    const auto line = watching.wait_for_text("\"output\"");
    ASSERT_TRUE(line);
    static const Pattern ticks("\"ticks\":[0-9]+");
    EXPECT_EQ(ticks.replace(without_times(*line), "\"ticks\":N") + "\n",
              output_line("m", "out", "timersource", R"({"ticks":N,"period_ms":20})"));
}

TEST_F(ControlWatch, EndsWithItsHost) {
    start(relay, {"--control"});
    RunningHost watching(watch("json"));
    stop();
    const Ended watched = watching.wait();
    expect_end(watched, 69,
               "fenwa: the host that owned 'com.tarlo.Fenwa.Host1' has left the bus\n");
    EXPECT_TRUE(without_times(watched.out).ends_with(ready_line + exit_line(69))) << watched.out;
}

}  // namespace
}  // namespace test
