#include <optional>

#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

/// `fenwa read` and `fenwa write` beside a host that runs.
class ControlCommands : public HostTest {
  protected:
    void start(const std::string& lines, const std::string& option = "--control") {
        host_.emplace(run_command(probes(lines), {"--bus", bus(), option}));
        ASSERT_TRUE(host_->wait_for_text("\"ready\""));
    }
    void TearDown() override {
        if (host_) {
            EXPECT_EQ(host_->terminate().code, 0);
        }
    }

    static Ended fenwa(Words words, const std::string& address = bus()) {
        words.insert(words.begin(), {FENWA_PROGRAM});
        // Before a "--".
        words.insert(words.begin() + 2, {"--bus", address});
        return run_program(words);
    }

    static void expect_value(const std::string& port, const std::string& value) {
        const Ended ended = fenwa({"read", port});
        EXPECT_EQ(ended.code, 0);
        EXPECT_EQ(ended.out, value + "\n") << port;
        EXPECT_EQ(ended.err, "");
    }
    static void expect_written(const std::string& port, const std::string& value) {
        const Ended ended = fenwa({"write", port, "--", value});
        EXPECT_EQ(ended.code, 0);
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(ended.err, "");
    }
    static void expect_refused(const Words& words, const std::string& sentence, int code = 2) {
        const Ended ended = fenwa(words);
        EXPECT_EQ(ended.code, code) << sentence;
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(ended.err, "fenwa: " + sentence + "\n");
    }

    std::optional<Process> host_;
};

const std::string relay = "[blocks.r]\ntype = \"Relay\"\n";
const std::string sink = "[blocks.s]\ntype = \"Sink\"\nonly = \"double\"\n";

TEST_F(ControlCommands, AllTakeColor) {
    start(relay);
    EXPECT_EQ(fenwa({"read", "r.int", "--color", "always"}).out, "\x1b[1m0\x1b[0m\n");
    EXPECT_EQ(fenwa({"read", "r.int", "--color=never"}).out, "0\n");
    const Ended written = fenwa({"write", "r.int", "5", "--color=always"});
    EXPECT_EQ(written.code, 0) << written.err;
    const Ended set = fenwa({"set", "r", "fires=true", "--color", "auto"});
    EXPECT_EQ(set.err.find("--color"), std::string::npos) << set.err;
    EXPECT_EQ(fenwa({"read", "r.int"}).out, "5\n");
}

TEST_F(ControlCommands, ReadPrintsTheValueAlone) {
    start("[blocks.v]\ntype = \"Values\"\n" + sink);
    ASSERT_TRUE(host_->wait_for_text(R"("port":"double","type":"double","value":2.0)"));
    expect_value("v.double", "2.0");
    expect_value("v.float", "2.0");
    expect_value("v.bool", "true");
    expect_value("v.int", "-7");
    expect_value("v.tick", "{\"ticks\":9007199254740993,\"period_ms\":250}");
    expect_value("s.double", "0.0");
}

TEST_F(ControlCommands, WriteTakesTheValueAsThePortNeedsIt) {
    start(relay + "[blocks.t]\ntype = \"Terminated\"\nsettings = \"monitor\"\n");
    const std::map<std::string, std::vector<std::pair<std::string, std::string>>> values{
        {"r.double",
         {{"36.6", "36.6"},
          {"5", "5.0"},
          {"-1e-3", "-0.001"},
          {"nan", "nan"},
          {"inf", "inf"},
          {"-inf", "-inf"},
          {"-0.0", "-0.0"}}},
        {"r.float", {{"36.6", "36.599998474121094"}, {"nan", "nan"}, {"16777217", "16777216.0"}}},
        {"r.int", {{"2147483647", "2147483647"}, {"-2147483648", "-2147483648"}, {"0", "0"}}},
        {"r.bool", {{"true", "true"}, {"false", "false"}}},
        {"t.temp_monitor_in", {{"false", "false"}, {"true", "true"}}}};
    for (const auto& [port, pairs] : values) {
        for (const auto& [typed, read] : pairs) {
            expect_written(port, typed);
            expect_value(port, read);
        }
    }
    EXPECT_EQ(fenwa({"write", "r.int", "-5"}).code, 0);  // without the --
    expect_value("r.int", "-5");
}

TEST_F(ControlCommands, WriteMakesTheBlockRun) {
    start(sink);
    expect_written("s.double", "2.5");
    EXPECT_TRUE(host_->wait_for_text("s: run double!=2.5"));
}

TEST_F(ControlCommands, WrongValuesAreRefusedInTheWordsOfThePortsType) {
    start(relay + "[blocks.s]\ntype = \"Sink\"\n");
    const std::string no_int =
        " is not an int; expected a whole number from -2147483648 to 2147483647";
    for (const char* value : {"2147483648", "-2147483649", "1.0", "1e3", "one", "", " 1", "1 ",
                              "0x10", "+1", "99999999999999999999"})
        expect_refused({"write", "r.int", "--", value}, "'" + std::string(value) + "'" + no_int);
    const std::string no_number =
        " is not a number in the range of a double; nan, inf and -inf are accepted";
    for (const char* value : {"1e999", "one", "", "1,5", "true"}) {
        expect_refused({"write", "r.double", "--", value},
                       "'" + std::string(value) + "'" + no_number);
        expect_refused({"write", "r.float", "--", value},
                       "'" + std::string(value) + "'" + no_number);
    }
    for (const char* value : {"1", "True", "yes", ""})
        expect_refused({"write", "r.bool", "--", value},
                       "'" + std::string(value) + "' is not a bool; expected true or false");
    expect_value("r.int", "0");
    expect_value("r.double", "0.0");
    expect_value("r.bool", "false");
    expect_refused({"write", "s.tick", "1"}, "'s.tick' takes timersource, which cannot be written");
}

TEST_F(ControlCommands, WhatTheHostRefusesIsAWrongCommandLine) {
    start(relay + "[blocks.m]\ntype = \"Timer\"\ninterval = 1000000\n" + sink +
          "[[connections]]\nfrom = \"r.double_out\"\nto = \"s.double\"\n");
    expect_refused({"read", "r"}, "'r' is not of the form BLOCK.PORT");
    expect_refused({"read", "q.double"}, "no block 'q' in the graph");
    expect_refused({"read", "r.duoble"},
                   "the block 'r' has no port 'duoble'; did you mean 'double'?");
    expect_refused({"read", "r.point_out"},
                   "'r.point_out' holds a value of a datatype that the host does not know");
    expect_refused({"write", "r.itn", "1"}, "the block 'r' has no port 'itn'; did you mean 'int'?");
    expect_refused({"write", "r.int_out", "1"}, "'r.int_out' is an output, not an input");
    expect_refused({"write", "m.out", "1"}, "'m.out' is an output, not an input");
    expect_refused({"write", "s.double", "1"}, "'s.double' is connected to 'r.double_out'");
    expect_refused({"read", "r.\xff"}, "the arguments are not valid UTF-8");
}

TEST_F(ControlCommands, FindTheHostByItsName) {
    start(relay, "--control=com.example.Named");
    const Ended read = fenwa({"read", "r.int", "--control", "com.example.Named"});
    EXPECT_EQ(read.code, 0);
    EXPECT_EQ(read.out, "0\n");
    EXPECT_EQ(fenwa({"write", "r.int", "3", "--control=com.example.Named"}).code, 0);
    EXPECT_EQ(fenwa({"read", "r.int", "--control=com.example.Named"}).out, "3\n");
    const std::string none =
        "no host owns 'com.tarlo.Fenwa.Host1' on the bus at '" + bus() +
        "'; start one with 'fenwa run GRAPH --control', or name its bus with --bus";
    expect_refused({"read", "r.int"}, none, 69);
    expect_refused({"write", "r.int", "1"}, none, 69);
    const Ended watched = fenwa({"watch"});
    EXPECT_EQ(watched.code, 69);
    EXPECT_EQ(watched.out, "");
    EXPECT_EQ(watched.err, "fenwa: " + none + "\n");
}

TEST_F(ControlCommands, WithoutABusEndWith69) {
    for (const Words& words :
         {Words{"read", "r.int"}, Words{"write", "r.int", "1"}, Words{"watch"}}) {
        const Ended ended = fenwa(words, "unix:path=/no/bus");
        EXPECT_EQ(ended.code, 69);
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(
            ended.err,
            "fenwa: cannot reach the bus at 'unix:path=/no/bus': No such file or directory\n");
    }
}

TEST_F(ControlCommands, TalkToTheSystemBusUnlessToldOtherwise) {
    start(relay);
    const Ended ended =
        run_program({FENWA_PROGRAM, "read", "r.int"}, {{"DBUS_SYSTEM_BUS_ADDRESS", bus()}});
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.out, "0\n");
}

TEST_F(ControlCommands, ReadThatCannotBePrintedIsNoSuccess) {
    start(relay);
    const Ended ended = run_program(
        {"sh", "-c", "exec \"$0\" read r.int --bus \"$1\" > /dev/full", FENWA_PROGRAM, bus()});
    EXPECT_EQ(ended.code, 69);
    EXPECT_EQ(ended.err, "fenwa: cannot write to stdout: No space left on device\n");
}

}  // namespace
}  // namespace test
