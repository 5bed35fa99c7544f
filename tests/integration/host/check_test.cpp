#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

class Check : public HostTest {};

const std::string timer = "[blocks.t]\ntype = \"Timer\"\ninterval = 5\n";

TEST_F(Check, RightGraphIsCountedAndNeedsNoBus) {
    const Ended ended =
        check("[bus]\naddress = \"unix:path=/no/bus\"\nnames = [\"com.example.One\"]\n" + timer, {},
              {{"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/no/bus"}});
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.err, "fenwa: graph.toml: no mistakes (1 block, 0 connections)\n");
}

TEST_F(Check, ShippedGraphHasNoMistakes) {
    const Ended ended = check(
        "plugins = [\"libfenwa-temperature.so\"]\n[blocks.reader]\ntype = \"TemperatureReader\"\n"
        "sensor_name = \"main\"\ndelta_chg = 0.5\n");
    EXPECT_EQ(ended.code, 0) << ended.err;
}

TEST_F(Check, LeavesNoLogLinesOfTheBlocks) {
    // The probe logs in its constructor, its setup and its destructor.
    const Ended ended = check(probes("[blocks.p]\ntype = \"Probe\"\n"));
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.err, "fenwa: graph.toml: no mistakes (1 block, 0 connections)\n");
}

TEST_F(Check, WarningsAreMistakesOnlyWhenTheyAreDenied) {
    const std::string said =
        "graph.toml:4:1: warning: Timer does not read the key 'delay'\ndelay = 1\n^\n"
        "graph.toml: 1 warning\n";
    const Ended tolerant = check(timer + "delay = 1\n");
    EXPECT_EQ(tolerant.code, 0);
    EXPECT_EQ(tolerant.err, said + "fenwa: graph.toml: no errors (1 block, 0 connections)\n");
    const Ended strict = check(timer + "delay = 1\n", {"--deny-warnings"});
    EXPECT_EQ(strict.code, 78);
    EXPECT_EQ(strict.err, said);
    EXPECT_EQ(check(timer, {"--deny-warnings"}).code, 0);
}

TEST_F(Check, UnreadKeyThatResemblesOneThatIsReadIsWarnedOfWithIt) {
    EXPECT_EQ(
        check(probes("[blocks.s]\ntype = \"Source\"\nin_satrt = 3\nfires.x = 1\n")).err,
        "graph.toml:4:1: warning: Source does not read the key 'in_satrt'\nin_satrt = 3\n^\n"
        "help: did you mean 'in_start'?\n"
        "graph.toml:5:7: warning: Source does not read the key 'fires.x'\nfires.x = 1\n      ^\n"
        "help: did you mean 'fires'?\n"
        "graph.toml: 2 warnings\nfenwa: graph.toml: no errors (1 block, 0 connections)\n");
}

TEST_F(Check, KeyThatABlockReadsOnlyAtTimesIsNoMistake) {
    const Ended ended =
        check(probes("[blocks.s]\ntype = \"Settled\"\nhidden = 5\nhiden = 5\n"
                     "[blocks.bound]\ntype = \"Settled\"\nneeds_a_bus = true\nhidden = 5\n"));
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(
        ended.err,
        "graph.toml:5:1: warning: Settled does not read the key 'hiden'\nhiden = 5\n^\n"
        "help: did you mean 'hidden'?\n"
        "graph.toml:6:9: warning: block 'bound' (Settled) cannot be checked: it needs a bus to "
        "be built\n[blocks.bound]\n        ^\ngraph.toml: 2 warnings\n"
        "fenwa: graph.toml: no errors (2 blocks, 0 connections)\n");
}

TEST_F(Check, OnlyTheBlocksOwnTypeIsNoSetting) {
    EXPECT_EQ(lines_with(check(timer + "fake.type = \"x\"\n").err, "warning: "),
              "graph.toml:4:6: warning: Timer does not read the key 'fake.type'\n");
}

TEST_F(Check, ObjectThatTwoBlocksExportIsAWarning) {
    const std::string exporter = "type = \"Exporter\"\npath = \"/com/example/";
    const Ended ended = check(probes("[blocks.one]\n" + exporter + "A\"\n[blocks.two]\n" +
                                     exporter + "B\"\n[blocks.three]\n" + exporter + "A\"\n"));
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err,
              "graph.toml:8:9: warning: the blocks 'one' and 'three' both export "
              "'com.example.Echo1' at '/com/example/A'; only the first one is reached\n"
              "[blocks.three]\n        ^\ngraph.toml: 1 warning\n"
              "fenwa: graph.toml: no errors (3 blocks, 0 connections)\n");
}

TEST_F(Check, BlockThatThrowsGives70AndNamesThePhase) {
    const std::string probe = "[blocks.p]\ntype = \"Probe\"\nthrows_in = ";
    const Ended constructor = check(probes(probe + "\"constructor\"\n"));
    EXPECT_EQ(constructor.code, 70);
    EXPECT_EQ(constructor.err,
              "graph.toml:2:9: error: block 'p' (Probe) threw in its constructor: thrown on "
              "purpose\n[blocks.p]\n        ^\ngraph.toml: 1 error\n");
    const Ended setup = check(probes(probe + "\"setup\"\nthrows = \"odd\"\n"));
    EXPECT_EQ(setup.code, 70);
    EXPECT_EQ(setup.err,
              "graph.toml:2:9: error: block 'p' (Probe) threw in setup: something that is not a "
              "std::exception\n[blocks.p]\n        ^\ngraph.toml: 1 error\n");
}

TEST_F(Check, ConfigurationErrorThatABlockThrowsIsPlacedAtItsKeyOrItsTable) {
    const std::string probe =
        "[blocks.p]\ntype = \"Probe\"\nthrows_in = \"constructor\"\nthrows = ";
    EXPECT_EQ(check(probes(probe + "\"configuration\"\n")).err,
              "graph.toml:5:1: error: block 'p' (Probe): the key 'throws' must be a word that is "
              "not there, not another one\nthrows = \"configuration\"\n^\ngraph.toml: 1 error\n");
    const Ended missing = check(probes(probe + "\"missing\"\n"));
    EXPECT_EQ(missing.code, 78);
    EXPECT_EQ(missing.err,
              "graph.toml:2:9: error: block 'p' (Probe): the required key 'absent' (an int) is "
              "missing\n[blocks.p]\n        ^\ngraph.toml: 1 error\n");
}

TEST_F(Check, ThrowNextToAnotherMistakeGives78) {
    EXPECT_EQ(check(probes("[blocks.p]\ntype = \"Probe\"\nthrows_in = \"constructor\"\n"
                           "[blocks.q]\ntype = \"Prob\"\n"))
                  .code,
              78);
}

const std::string needs_a_bus =
    "[blocks.c]\ntype = \"Caller\"\nearly = true\n[[connections]]\nfrom = \"c.out\"\n"
    "to = \"c.in\"\n";

TEST_F(Check, BlockThatNeedsABusIsAWarning) {
    const Ended ended = check(probes(needs_a_bus));
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err,
              "graph.toml:2:9: warning: block 'c' (Caller) cannot be checked: it needs a bus to "
              "be built\n[blocks.c]\n        ^\ngraph.toml: 1 warning\n"
              "fenwa: graph.toml: no errors (1 block, 1 connection)\n");
}

TEST_F(Check, PortsOfABlockThatNeedsABusAreCheckedWhenItIsThere) {
    const Ended ended = run(probes(needs_a_bus));
    EXPECT_EQ(ended.code, 78);
    EXPECT_EQ(without_times(ended.out), "{\"event\":\"exit\",\"time\":0,\"status\":78}\n");
    EXPECT_EQ(ended.err,
              "graph.toml:6:8: error: the block 'c' has no output 'out'\nfrom = \"c.out\"\n"
              "       ^\nhelp: it has no outputs\n"
              "graph.toml:7:6: error: the block 'c' has no input 'in'\nto = \"c.in\"\n"
              "     ^\nhelp: it has no inputs\ngraph.toml: 2 errors\n");
}

TEST_F(Check, ColoursOnlyWhenTheyAreWanted) {
    const std::string graph = "[blocks.t]\ntype = \"Timr\"\n";
    const std::string plain =
        "graph.toml:2:8: error: unknown block type 'Timr'\ntype = \"Timr\"\n       ^\n"
        "help: did you mean 'Timer'?\ngraph.toml: 1 error\n";
    const std::string coloured =
        "\x1b[1mgraph.toml:2:8: \x1b[0m\x1b[1;31merror: \x1b[0munknown block type 'Timr'\n"
        "type = \"Timr\"\n       \x1b[1;32m^\x1b[0m\n"
        "\x1b[1;36mhelp: \x1b[0mdid you mean 'Timer'?\ngraph.toml: 1 error\n";
    EXPECT_EQ(check(graph).err, plain);
    EXPECT_EQ(check(graph, {"--color=never"}).err, plain);
    EXPECT_EQ(check(graph, {"--color=always"}).err, coloured);
    EXPECT_EQ(check(graph, {"--color", "always"}, {{"NO_COLOR", "1"}}).err, coloured);
    EXPECT_EQ(lines_with(check(timer + "delay = 1\n", {"--color=always"}).err, "delay'"),
              "\x1b[1mgraph.toml:4:1: \x1b[0m\x1b[1;33mwarning: \x1b[0mTimer does not read the key "
              "'delay'\n");
}

}  // namespace
}  // namespace test
