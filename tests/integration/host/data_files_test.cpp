#include <sys/stat.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "common/text/json.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

namespace fs = std::filesystem;

using common::Json;

/// A stranger's plug-in, "libown.so", with a data file of its own.
class DataFile : public HostTest {
  protected:
    DataFile() { place("libprobe.so", "libown.so"); }

    void place(const std::string& plugin, const std::string& name) const {
        fs::copy_file(fs::path(FENWA_TEST_PLUGINS) / plugin, path(name));
    }
    void write_data(const std::string& text) const { (void)folder().write("libown.toml", text); }

    Ended inspect(const Words& arguments) const {
        return without_folder(fenwa(Words{"inspect", path("libown.so")} + arguments));
    }

    /// Expects these warnings from `check` and `run`, which are not stopped by them.
    void expect_warnings(const std::string& graph, const std::string& warnings) const {
        const Ended checked = check(graph);
        EXPECT_EQ(checked.code, 0);
        EXPECT_TRUE(checked.err.starts_with(warnings + "fenwa: graph.toml: no ")) << checked.err;
        const Ended ran = run(graph, {"--for", "0.01"});
        expect_end(ran, 0, warnings);
        EXPECT_NE(ran.out.find("\"ready\""), std::string::npos);
    }
};

const std::string own = "plugins = [\"./libown.so\"]\n";

TEST_F(DataFile, HoldsAGraphToWhatAStrangersBlockNeeds) {
    write_data(R"([types.Source]
one_per_host = "nobody knows who is who"
bus_name = "com.example.{constant}.N{runs}"
ascending = [["in_start", "runs", "fires"], ["constant", "unread"]]
[types.Source.keys]
fires = { description = "fires for a run", unit = "fires", min = 1, below = 10 }
runs = { max = 4 }
[types.Sink.inputs]
int = { unconnected = "it counts nothing" }
tick = {}
point = {}
double = { unconnected = "it is silent" }
other = { optional = true }
float = { optional = true }
bool = { optional = true }
)");
    expect_warnings(
        own + R"([blocks.a]
type = "Source"
fires = 10
runs = 5
[blocks.b]
type = "Source"
in_start = 1
fires = 1
[blocks.sink]
type = "Sink"
[[connections]]
from = "a.out"
to = "sink.double"
)",
        R"(graph.toml:2:9: warning: block 'a' (Source): services call it under the bus name 'com.example.0.0.N5', which the graph does not own
[blocks.a]
        ^
help: add names = ["com.example.0.0.N5"] to [bus]
graph.toml:4:1: warning: block 'a' (Source): 'fires' should be 1 or more, below 10, not 10
fires = 10
^
help: fires for a run (1 or more, below 10, fires)
graph.toml:5:1: warning: block 'a' (Source): 'runs' should be 4 or less, not 5
runs = 5
^
graph.toml:6:9: warning: block 'b' (Source): services call it under the bus name 'com.example.0.0.N0', which the graph does not own
[blocks.b]
        ^
help: add names = ["com.example.0.0.N0"] to [bus]
graph.toml:6:9: warning: the blocks 'a' and 'b' are both a Source; with two in one host, nobody knows who is who
[blocks.b]
        ^
help: run 'b' in a host of its own
graph.toml:8:1: warning: block 'b' (Source): 'in_start' (1) should not be above 'runs' (0 by default)
in_start = 1
^
help: the order is in_start <= runs <= fires
graph.toml:10:9: warning: block 'sink' (Sink): nothing is connected to its input 'quiet', which stays 0.0
[blocks.sink]
        ^
help: connect an output of the type double to 'sink.quiet'
graph.toml:10:9: warning: block 'sink' (Sink): nothing is connected to its input 'int': it counts nothing
[blocks.sink]
        ^
help: connect an output of the type int to 'sink.int'
graph.toml:10:9: warning: block 'sink' (Sink): nothing is connected to its input 'tick'
[blocks.sink]
        ^
help: connect the output 'out' of a Timer to 'sink.tick'
graph.toml:10:9: warning: block 'sink' (Sink): nothing is connected to its input 'point'
[blocks.sink]
        ^
help: connect an output of the type /example/geometry.p/point to 'sink.point'
graph.toml: 10 warnings
)");
}

TEST_F(DataFile, WarningsCountWhereTheyAreDenied) {
    write_data("types.Source.keys.runs.min = 1\n");
    EXPECT_EQ(check(own + "blocks.s = {type = \"Source\", runs = 0}", {"--deny-warnings"}).code,
              78);
}

TEST_F(DataFile, InputOfABlockThatNoFileDescribesNeedsAConnection) {
    expect_warnings(
        own + "blocks.c = {type = \"OddlyNamed\"}\n",
        R"(graph.toml:2:8: warning: block 'c' (OddlyNamed): nothing is connected to its input 'in', which stays 0.0
blocks.c = {type = "OddlyNamed"}
       ^
help: connect an output of the type double to 'c.in'
graph.toml: 1 warning
)");
}

TEST_F(DataFile, MistakesInItAreWarningsWithTheirPlaceAndDenyNothing) {
    place("first/libplaced.so", "libplaced.so");
    (void)folder().write("libplaced.toml", "[types.Source]\ndescription = \"mine\"\n");
    write_data(R"(tpyes = 1
[types]
Other = 5
[types.Source]
description = 5
desciption = "x"
ascending = [["runs", 5], "runs", ["runs"]]
bus_name = true
[types.Source.keys]
runs = { min = "low", max = inf, optional = true }
fires = { min = 2, max = 1 }
constant = 7
)");
    const std::string graph =
        "plugins = [\"./libown.so\", \"./libplaced.so\"]\nblocks.s = {type = \"Source\"}\n";
    expect_warnings(graph, R"(libown.toml:1:1: warning: unknown key 'tpyes' in the data file
tpyes = 1
^
help: did you mean 'types'?
libown.toml:3:1: warning: the type 'Other' must be a table, not an integer
Other = 5
^
libown.toml:5:15: warning: 'description' of [types.Source] must be a string, not an integer
description = 5
              ^
libown.toml:6:1: warning: unknown key 'desciption' in [types.Source]
desciption = "x"
^
help: did you mean 'description'?
libown.toml:7:14: warning: each of 'ascending' of [types.Source] must be an array of keys
ascending = [["runs", 5], "runs", ["runs"]]
             ^
libown.toml:7:27: warning: each of 'ascending' of [types.Source] must be an array of keys
ascending = [["runs", 5], "runs", ["runs"]]
                          ^
libown.toml:8:12: warning: 'bus_name' of [types.Source] must be a string, not a boolean
bus_name = true
           ^
libown.toml:10:16: warning: 'min' of the key 'runs' must be a number, not a string
runs = { min = "low", max = inf, optional = true }
               ^
libown.toml:10:29: warning: 'max' of the key 'runs' must be finite
runs = { min = "low", max = inf, optional = true }
                            ^
libown.toml:10:34: warning: unknown key 'optional' in the key 'runs'
runs = { min = "low", max = inf, optional = true }
                                 ^
libown.toml:11:9: warning: no number is in the range of the key 'fires'
fires = { min = 2, max = 1 }
        ^
libown.toml:12:1: warning: the key 'constant' must be a table, not an integer
constant = 7
^
libown.toml: 12 warnings
libplaced.toml:1:8: warning: the block type 'Source' is described in 'libown.toml' already
[types.Source]
       ^
libplaced.toml: 1 warning
)");
    EXPECT_EQ(check(graph, {"--deny-warnings"}).code, 0);
}

TEST_F(DataFile, ThatCannotBeParsedLeavesItsBlocksUnchecked) {
    const std::string graph = own + "blocks.c = {type = \"OddlyNamed\"}\n";
    write_data("[types.OddlyNamed\n");
    const Ended checked = check(graph);
    EXPECT_EQ(checked.code, 0);
    EXPECT_TRUE(checked.err.starts_with("libown.toml:1:18: warning: ")) << checked.err;
    EXPECT_EQ(count_lines(checked.err, "warning"), 2) << checked.err;  // with the count

    fs::remove(path("libown.toml"));
    ASSERT_EQ(mkfifo(path("libown.toml").c_str(), 0600), 0);
    expect_warnings(graph, "libown.toml: warning: not a regular file\nlibown.toml: 1 warning\n");
}

TEST_F(DataFile, GraphWithTheNameOfItsPluginIsNotOne) {
    place("libprobe.so", "graph.so");
    expect_warnings("plugins = [\"./graph.so\"]\nblocks.s = {type = \"Source\"}\n", "");
}

TEST_F(DataFile, IsShownByInspect) {
    write_data(R"([types.Source]
description = "Publishes numbers."
one_per_host = "nobody knows who is who"
bus_name = "com.example.N{runs}"
ascending = [["in_start", "runs"]]
keys.fires = { description = "fires for a run", unit = "fires", min = 1, max = 2.5 }
keys.runs = { above = 0, below = 5 }
outputs.out = { description = "1, 2, 3 …", unit = "pieces" }
event_ports.go = { description = "fired for the next run" }
[types.Relay.inputs]
int = { description = "a number", optional = true }
bool = { unconnected = "it is silent" }
)");
    const Ended source = inspect({"Source"});
    expect_end(source);
    EXPECT_EQ(source.out, R"(Source
  Publishes numbers.
  output      out  double
                1, 2, 3 … (pieces)
  event       go
                fired for the next run
  key         constant              double  default 0.0
              fires                 int     default 1
                fires for a run (1 to 2.5, fires)
              runs                  int     default 0
                above 0, below 5
              in_start              int     default 0
              in_constructor        int     default 0
              fires_in_constructor  bool    default false
  order       in_start <= runs
  bus name    com.example.N{runs}
  one a host  with two, nobody knows who is who
)");
    const Json relay = Json::parse(inspect({"Relay", "--format=json"}).out)["types"][0];
    EXPECT_EQ(relay["inputs"][2], Json::parse(R"({"name":"int","type":"int","triggers":true,)"
                                              R"("description":"a number","optional":true})"));
    EXPECT_EQ(relay["inputs"][3], Json::parse(R"({"name":"bool","type":"bool","triggers":true,)"
                                              R"("unconnected":"it is silent"})"));
    const Json type = Json::parse(inspect({"Source", "--format=json"}).out)["types"][0];
    EXPECT_EQ(type["description"], "Publishes numbers.");
    EXPECT_EQ(type["keys"][1]["range"], Json::parse(R"({"min":1,"max":2.5})"));
    EXPECT_EQ(type["keys"][2]["range"], Json::parse(R"({"above":0,"below":5})"));
    EXPECT_EQ(type["one_per_host"], "nobody knows who is who");
    EXPECT_EQ(type["bus_name"], "com.example.N{runs}");
    EXPECT_EQ(type["ascending"], Json::parse(R"([["in_start","runs"]])"));
}

TEST_F(DataFile, InspectWarnsOfWhatThePluginDoesNotHave) {
    write_data(R"([types.Sauce]
[types.Source]
ascending = [["runs", "firse"]]
bus_name = "com.example.N{run}"
[types.Sink]
bus_name = "com.example.N{only"
[types.Source.keys]
fire = {}
[types.Source.outputs]
in = {}
[types.Source.inputs]
in = {}
[types.Source.event_ports]
went = {}
)");
    expect_end(inspect({"Source"}), 0,
               R"(libown.toml:1:8: warning: the plug-in registers no block type 'Sauce'
[types.Sauce]
       ^
help: did you mean 'Source'?
libown.toml:2:8: warning: the block type 'Source' has no key 'firse'
[types.Source]
       ^
help: did you mean 'fires'?
libown.toml:2:8: warning: the block type 'Source' has no key 'run'
[types.Source]
       ^
help: did you mean 'runs'?
libown.toml:8:1: warning: the block type 'Source' has no key 'fire'
fire = {}
^
help: did you mean 'fires'?
libown.toml:10:1: warning: the block type 'Source' has no output 'in'
in = {}
^
libown.toml:12:1: warning: the block type 'Source' has no input 'in'
in = {}
^
libown.toml:14:1: warning: the block type 'Source' has no event port 'went'
went = {}
^
libown.toml: 7 warnings
)");
    expect_end(inspect({"Sink"}), 0,
               R"(libown.toml:1:8: warning: the plug-in registers no block type 'Sauce'
[types.Sauce]
       ^
help: did you mean 'Source'?
libown.toml:5:8: warning: a brace is not closed in the bus name 'com.example.N{only'
[types.Sink]
       ^
libown.toml: 2 warnings
)");
}

/// The data file that comes with the seven blocks.
class ShippedDataFile : public HostTest {
  protected:
    /// Whether a default lies in a range.
    static bool is_in(const Json& range, const Json& value) {
        const double number = value.get<double>();
        return (!range.contains("min") || number >= range["min"]) &&
               (!range.contains("above") || number > range["above"]) &&
               (!range.contains("max") || number <= range["max"]) &&
               (!range.contains("below") || number < range["below"]);
    }
};

TEST_F(ShippedDataFile, DescribesEveryTypePortAndKeyAndNothingElse) {
    const Ended ended = fenwa({"inspect", "libfenwa-temperature.so", "--format=json"});
    // A key, port or type that the blocks do not have would be a warning.
    expect_end(ended);
    const Json types = Json::parse(ended.out)["types"];
    EXPECT_EQ(types.size(), 7U);
    for (const Json& type : types) {
        EXPECT_TRUE(type.contains("description")) << type;
        for (const char* list : {"inputs", "outputs", "event_ports", "terminated_inputs", "keys"}) {
            for (const Json& item : type[list])
                EXPECT_TRUE(item.contains("description")) << type["type"] << ' ' << item;
        }
        for (const Json& key : type["keys"]) {
            const bool is_number = key["type"] != "string" && key["type"] != "bool";
            EXPECT_EQ(key.contains("unit") || key.contains("range"), is_number)
                << type["type"] << ' ' << key;
            if (key.contains("range") && key.contains("default")) {
                EXPECT_TRUE(is_in(key["range"], key["default"])) << type["type"] << ' ' << key;
            }
        }
    }
}

}  // namespace
}  // namespace test
