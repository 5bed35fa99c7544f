#include <string>

#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

/// One mistake in a graph: the lines with it, and all that is said about it.
struct Mistake {
    std::string name;
    std::string graph;
    std::string said;
    int code = 78;
};

void PrintTo(const Mistake& mistake, std::ostream* out) {
    *out << mistake.name;
}

class GraphMistake : public HostTest, public testing::WithParamInterface<Mistake> {};

TEST_P(GraphMistake, IsReportedAtItsPlaceByCheck) {
    const Ended ended = check(GetParam().graph);
    EXPECT_EQ(ended.code, GetParam().code);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.err, GetParam().said);
}

TEST_P(GraphMistake, IsReportedByRunBeforeAnythingStarts) {
    // The address says that no bus is asked for: that would be another message.
    const Ended ended =
        without_folder(run_program(run_command(GetParam().graph, {"--bus", "unix:path=/no/bus"})));
    EXPECT_EQ(ended.code, GetParam().code);
    EXPECT_EQ(without_times(ended.out), "{\"event\":\"exit\",\"time\":0,\"status\":" +
                                            std::to_string(GetParam().code) + "}\n");
    EXPECT_EQ(ended.err, GetParam().said);
}

std::string said(const std::string& place, const std::string& text, const std::string& line,
                 const std::string& caret_and_help) {
    return "graph.toml:" + place + ": error: " + text + "\n" + line + "\n" + caret_and_help +
           "\ngraph.toml: 1 error\n";
}

const std::string timer = "[blocks.t]\ntype = \"Timer\"\ninterval = 9\n";
const std::string probe = "plugins = [\"libprobe.so\"]\n";
const std::string pair = probe +
                         "[blocks.a]\ntype = \"Source\"\n[blocks.b]\ntype = \"Sink\"\n"
                         "[[connections]]\n";

INSTANTIATE_TEST_SUITE_P(
    Form, GraphMistake,
    testing::Values(
        Mistake{"Empty", "", "graph.toml: error: the graph has no blocks\ngraph.toml: 1 error\n"},
        Mistake{"NotToml", "hello, world\n",
                said("1:6", "Error while parsing key-value pair: expected '=', saw ','",
                     "hello, world", "     ^")},
        Mistake{"UnknownTopLevelKey", "plugin = 1\n" + timer,
                said("1:1", "unknown key 'plugin' in the graph", "plugin = 1",
                     "^\nhelp: did you mean 'plugins'?")},
        Mistake{"UnknownBusKey", timer + "[bus]\nadress = \"system\"\n",
                said("5:1", "unknown key 'adress' in [bus]", "adress = \"system\"",
                     "^\nhelp: did you mean 'address'?")},
        Mistake{"PluginsNoArray", "plugins = \"x\"\n" + timer,
                said("1:11", "'plugins' of the graph must be an array, not a string",
                     "plugins = \"x\"", "          ^")},
        Mistake{"PluginNoString", "plugins = [true]\n" + timer,
                said("1:12", "each of 'plugins' must be a string, not a boolean",
                     "plugins = [true]", "           ^")},
        Mistake{
            "PluginTwice", "plugins = [\"libprobe.so\", \"libprobe.so\"]\n" + timer,
            said("1:27", "'libprobe.so' is listed twice in 'plugins'",
                 "plugins = [\"libprobe.so\", \"libprobe.so\"]", "                          ^")},
        Mistake{
            "BusNoTable", "bus = 1.5\n" + timer,
            said("1:7", "'bus' of the graph must be a table, not a float", "bus = 1.5", "      ^")},
        Mistake{"AddressNoString", timer + "[bus]\naddress = 1\n",
                said("5:11", "'address' of [bus] must be a string, not an integer", "address = 1",
                     "          ^")},
        Mistake{"BusNameNoString", timer + "[bus]\nnames = [[]]\n",
                said("5:10", "each of 'names' of [bus] must be a string, not an array",
                     "names = [[]]", "         ^")},
        Mistake{"BusNameOfNoForm", timer + "[bus]\nnames = [\"camera\"]\n",
                said("5:10", "'camera' is not a valid well-known bus name", "names = [\"camera\"]",
                     "         ^")},
        Mistake{"BusNameOfAConnection", timer + "[bus]\nnames = [\":1.7\"]\n",
                said("5:10", "':1.7' is not a valid well-known bus name", "names = [\":1.7\"]",
                     "         ^")},
        Mistake{"BusNameTwice", timer + "[bus]\nnames = [\"a.b\", \"a.b\"]\n",
                said("5:17", "'a.b' is listed twice in 'names' of [bus]",
                     "names = [\"a.b\", \"a.b\"]", "                ^")},
        Mistake{"BlockNoTable", "[blocks]\nt = 1979-05-27\n",
                said("2:1", "the block 't' must be a table, not a date", "t = 1979-05-27", "^")},
        Mistake{
            "BlocksNoTable", "[[blocks]]\ntype = \"Timer\"\n",
            said("1:1", "'blocks' of the graph must be a table, not an array", "[[blocks]]", "^")},
        Mistake{"NoType", "[blocks.t]\ninterval = 9\n",
                said("1:9", "the block 't' has no 'type'", "[blocks.t]", "        ^")},
        Mistake{"TypeNoString", "[blocks.t]\ntype = {}\n",
                said("2:8", "'type' of the block 't' must be a string, not a table", "type = {}",
                     "       ^")},
        Mistake{"KeyOfNoKind", timer + "since = 07:32:00\n",
                said("4:9",
                     "'since' must be a boolean, an integer, a float, a string or an array of "
                     "strings, not a time",
                     "since = 07:32:00", "        ^")},
        Mistake{"MixedArray", timer + "list = [\"a\", 2]\n",
                said("4:14", "the array 'list' must hold strings only, not an integer",
                     "list = [\"a\", 2]", "             ^")},
        Mistake{"KeyTwice", timer + "\"a.b\" = 1\na.b = 2\n",
                "graph.toml:4:1: warning: Timer does not read the key 'a.b'\n\"a.b\" = 1\n^\n"
                "graph.toml:5:3: error: 'a.b' is set twice\na.b = 2\n  ^\n"
                "graph.toml: 1 error, 1 warning\n"},
        Mistake{"ZeroByteInAPlugin", "plugins = [\"libprobe.so\\u0000x\"]\n" + timer,
                said("1:12", "the string holds a zero byte", "plugins = [\"libprobe.so\\u0000x\"]",
                     "           ^")},
        Mistake{
            "ZeroByteInABusName", timer + "[bus]\nnames = [\"a.b\\u0000\"]\n",
            said("5:10", "the string holds a zero byte", "names = [\"a.b\\u0000\"]", "         ^")},
        Mistake{"ZeroByteInASetting",
                probe + "[blocks.p]\ntype = \"Probe\"\nthrows_in = \"setup\\u0000\"\n",
                said("4:13", "the string holds a zero byte", "throws_in = \"setup\\u0000\"",
                     "            ^")},
        Mistake{"ZeroByteInABlocksName", "[blocks.\"t\\u0000\"]\ntype = \"Timer\"\ninterval = 9\n",
                said("1:9", "the key holds a zero byte", "[blocks.\"t\\u0000\"]", "        ^")},
        Mistake{
            "KeyOfTooManyBytes", timer + "[blocks.t." + std::string(1020, 'k') + "]\nfive = 1\n",
            said("5:1", "the key is longer than 1024 bytes, its tables included", "five = 1", "^")},
        Mistake{"BlockTwice", timer + "[blocks.t]\ntype = \"Timer\"\n",
                said("4:1",
                     "Error while parsing table header: cannot redefine existing table 'blocks.t'",
                     "[blocks.t]", "^\nhelp: the first one is at graph.toml:1:1")}),
    [](const auto& each) { return each.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Blocks, GraphMistake,
    testing::Values(
        Mistake{"UnknownType", "[blocks.t]\ntype = \"Timr\"\n",
                said("2:8", "unknown block type 'Timr'", "type = \"Timr\"",
                     "       ^\nhelp: did you mean 'Timer'?")},
        Mistake{"MissingKey", "[blocks.t]\ntype = \"Timer\"\n",
                said("1:9", "block 't' (Timer): the required key 'interval' (an int) is missing",
                     "[blocks.t]", "        ^")},
        Mistake{"KeyOfAWrongType", "[blocks.t]\ntype = \"Timer\"\ninterval = \"1 s\"\n",
                said("3:1",
                     "block 't' (Timer): the key 'interval' must be an int, not the string "
                     "\"1 s\"",
                     "interval = \"1 s\"", "^")},
        Mistake{"IntegerBeyondInt", "[blocks.t]\ntype = \"Timer\"\ninterval = 2147483648\n",
                said("3:1",
                     "block 't' (Timer): the key 'interval' must be an int from -2147483648 to "
                     "2147483647, not the integer 2147483648",
                     "interval = 2147483648", "^")},
        Mistake{"IntegerBelowInt", "[blocks.t]\ntype = \"Timer\"\ninterval = -2147483649\n",
                said("3:1",
                     "block 't' (Timer): the key 'interval' must be an int from -2147483648 to "
                     "2147483647, not the integer -2147483649",
                     "interval = -2147483649", "^")},
        Mistake{"ValueOutOfRange", "[blocks.t]\ntype = \"Timer\"\ninterval = 0\n",
                said("3:1",
                     "block 't' (Timer): the key 'interval' must be an int of 1 or more "
                     "(milliseconds), not the integer 0",
                     "interval = 0", "^")},
        Mistake{"KeyOfNoKindThatIsNeeded", "[blocks.t]\ntype = \"Timer\"\ninterval = [1]\n",
                said("3:13", "the array 'interval' must hold strings only, not an integer",
                     "interval = [1]", "            ^")},
        Mistake{
            "MisspeltNeededKey", "[blocks.t]\ntype = \"Timer\"\nintervall = 9\n",
            "graph.toml:1:9: error: block 't' (Timer): the required key 'interval' (an int) "
            "is missing\n[blocks.t]\n        ^\n"
            "graph.toml:3:1: warning: Timer does not read the key 'intervall'\nintervall = 9\n^\n"
            "help: did you mean 'interval'?\ngraph.toml: 1 error, 1 warning\n"},
        Mistake{"FollowsFromAMissingKey", probe + "[blocks.s]\ntype = \"Strict\"\n",
                said("2:9", "block 's' (Strict): the required key 'divisor' (an int) is missing",
                     "[blocks.s]", "        ^")},
        Mistake{"FactoryWithoutBlock", probe + "[blocks.n]\ntype = \"Nothing\"\n",
                said("2:9", "the factory of block 'n' (Nothing) returned no block", "[blocks.n]",
                     "        ^")}),
    [](const auto& each) { return each.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Connections, GraphMistake,
    testing::Values(
        Mistake{"NoArray", "connections = {}\n" + timer,
                said("1:15", "'connections' of the graph must be an array, not a table",
                     "connections = {}", "              ^")},
        Mistake{"NoTable", "connections = [\"a.out\"]\n" + timer,
                said("1:16", "a connection must be a table with 'from' and 'to', not a string",
                     "connections = [\"a.out\"]", "               ^")},
        Mistake{"NoFrom", pair + "to = \"b.double\"\n",
                said("6:1", "the connection has no 'from'", "[[connections]]", "^")},
        Mistake{"NoTo", pair + "from = \"a.out\"\n",
                said("6:1", "the connection has no 'to'", "[[connections]]", "^")},
        Mistake{"EndNoString", pair + "from = 5\nto = \"b.double\"\n",
                said("7:8", "'from' of a connection must be a string, not an integer", "from = 5",
                     "       ^")},
        Mistake{"EndWithoutPort", pair + "from = \"a.\"\nto = \"b.double\"\n",
                said("7:8", "'a.' is not of the form BLOCK.PORT", "from = \"a.\"", "       ^")},
        Mistake{
            "EndWithoutBlock", pair + "from = \"a.out\"\nto = \".double\"\n",
            said("8:6", "'.double' is not of the form BLOCK.PORT", "to = \".double\"", "     ^")},
        Mistake{"EndWithoutDot", pair + "from = \"a.out\"\nto = \"b\"\n",
                said("8:6", "'b' is not of the form BLOCK.PORT", "to = \"b\"", "     ^")},
        Mistake{"UnknownKey", pair + "from = \"a.out\"\nto = \"b.double\"\nvia = 1\n",
                said("9:1", "unknown key 'via' in the connection", "via = 1", "^")},
        Mistake{"UnknownBlock", pair + "from = \"source.out\"\nto = \"b.double\"\n",
                said("7:8", "no block 'source' in the graph", "from = \"source.out\"", "       ^")},
        Mistake{"UnknownOutput", pair + "from = \"a.outt\"\nto = \"b.double\"\n",
                said("7:8", "the block 'a' has no output 'outt'", "from = \"a.outt\"",
                     "       ^\nhelp: did you mean 'out'?")},
        Mistake{"UnknownInput", pair + "from = \"a.out\"\nto = \"b.value\"\n",
                said("8:6", "the block 'b' has no input 'value'", "to = \"b.value\"",
                     "     ^\nhelp: it has: 'double', 'other', 'quiet', 'float', 'int', 'bool', "
                     "'tick', 'point'")},
        Mistake{"NoInputAtAll", pair + "from = \"a.out\"\nto = \"a.in\"\n",
                said("8:6", "the block 'a' has no input 'in'", "to = \"a.in\"",
                     "     ^\nhelp: it has no inputs")},
        Mistake{"InputForOutput", pair + "from = \"b.double\"\nto = \"b.other\"\n",
                said("7:8", "'b.double' is an input, not an output", "from = \"b.double\"",
                     "       ^")},
        Mistake{"OutputForInput", pair + "from = \"a.out\"\nto = \"a.out\"\n",
                said("8:6", "'a.out' is an output, not an input", "to = \"a.out\"", "     ^")},
        Mistake{"OtherDatatype", pair + "from = \"a.out\"\nto = \"b.point\"\n",
                said("8:6", "'b.point' takes /example/geometry.p/point, but 'a.out' gives double",
                     "to = \"b.point\"", "     ^")},
        Mistake{"TwoUnreadableEnds",
                pair + "from = \"a.out\"\nto = 5\n[[connections]]\nfrom = \"a.out\"\nto = 6\n",
                "graph.toml:8:6: error: 'to' of a connection must be a string, not an integer\n"
                "to = 5\n     ^\n"
                "graph.toml:11:6: error: 'to' of a connection must be a string, not an integer\n"
                "to = 6\n     ^\ngraph.toml: 2 errors\n"},
        Mistake{"InputTwice",
                pair + "from = \"a.out\"\nto = \"b.double\"\n[[connections]]\nfrom = \"a.out\"\n"
                       "to = \"b.double\"\n",
                said("11:6", "'b.double' is connected already, at graph.toml:8:6",
                     "to = \"b.double\"", "     ^")}),
    [](const auto& each) { return each.param.name; });

}  // namespace
}  // namespace test
