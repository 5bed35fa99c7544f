#include <filesystem>

#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

namespace fs = std::filesystem;

/// `fenwa inspect` of plug-ins that are known, and of strangers.
class Inspect : public HostTest {
  protected:
    Ended inspect(const Words& arguments) const {
        return without_folder(
            fenwa(Words{"inspect", "--plugin-dir", FENWA_TEST_PLUGINS} + arguments));
    }

    /// Expects these lines about a type of the plug-in with types that misbehave, unless another
    /// plug-in is named, in a time that is soon over.
    void expect_text(const std::string& type, int code, const std::string& lines,
                     const std::string& plugin = "libmisbehaving.so") const {
        const Ended ended = inspect({plugin, type, "--time-limit", "0.5"});
        expect_end(ended, code);
        EXPECT_EQ(ended.out, type + '\n' + lines);
    }
};

TEST_F(Inspect, ShowsAllTypesOfTheShippedPluginAsJson) {
    const std::string beside = fs::path(FENWA_PROGRAM).parent_path().string();
    const Ended ended = inspect({"libfenwa-temperature.so", "--format", "json"});
    expect_end(ended);
    EXPECT_EQ(ended.out, R"({"plugin":"libfenwa-temperature.so","file":")" + beside +
                             R"(/libfenwa-temperature.so","types":)" +
                             joined_lines("shipped_types.json") + "}\n");
}

TEST_F(Inspect, ShowsOneTypeInColumns) {
    expect_text("TemperatureMonitor", 0,
                R"(  Judges whether the temperature of one sensor lies inside a band.
  output      temperature_ok_out  bool
                the verdict: whether the temperature is inside the band
  event       event_port
                the controller has signalled a limit, has answered or has gone
  terminated  temp_monitor_in     bool  starts with true
                the verdict at the start, until something connected delivers
  key         sensor_name    string  required
                name of the sensor as the controller knows it
              low_on_temp    float   default -998.0
                on when the temperature rises over it (controller's unit)
              low_off_temp   float   default -1000.0
                off when it falls to it or below (controller's unit)
              high_on_temp   float   default 998.0
                on when it falls to it or below (controller's unit)
              high_off_temp  float   default 1000.0
                off when it rises over it (controller's unit)
  setting     temperature_ok                       true
              termination_cfg.inports              ["temp_monitor_in"]
              termination_cfg.types                ["/prefix/well-known.b/bool"]
              termination_cfg.temp_monitor_in_def  true
  order       low_off_temp <= low_on_temp <= high_off_temp
              low_off_temp <= high_on_temp <= high_off_temp
)",
                "libfenwa-temperature.so");
}

TEST_F(Inspect, SeparatesTypesByAnEmptyLine) {
    const std::string out = inspect({"libfenwa-temperature.so"}).out;
    EXPECT_NE(out.find(R"(

PowerConsumer
  Takes part in the camera's power budget for one video channel, and publishes the granted power.
  input       timer_in    timersource
                never read: it makes the host run the block (unconnected: it never runs)
  output      power_out   float
                the power granted; 0.0 before the first grant (controller's unit)
  event       event_port
                the controller has granted power, has answered or has gone
  exports     /com/tarlo/Vipd/PowerConsumer  com.tarlo.Vipd.PowerConsumer
  key         channel  int    default 0
                number of the video channel (0 or more)
              power    float  required
                the amount to ask for (0 or more, controller's unit)
  bus name    com.tarlo.Vipd.ch{channel}

PowerMonitor
)"),
              std::string::npos)
        << out;
}

TEST_F(Inspect, ColoursOnlyWhenTheyAreWanted) {
    const std::string note = "                \x1b[2m";
    EXPECT_EQ(
        inspect({"libfenwa-temperature.so", "TemperatureReader", "--color=always"}).out,
        "\x1b[1mTemperatureReader\x1b[0m\n"
        "  \x1b[2mPublishes the readings of one temperature sensor.\x1b[0m\n"
        "  \x1b[2moutput\x1b[0m      temperature_out  \x1b[1;36mdouble\x1b[0m\n" +
            note + "the last reading; 0.0 before the first (controller's unit)\x1b[0m\n" +
            "  \x1b[2mevent\x1b[0m       event_port\n" + note +
            "a reading has come, or the controller has come, has gone or has answered\x1b[0m\n"
            "  \x1b[2mkey\x1b[0m         fake.active  \x1b[1;36mbool\x1b[0m    default false, "
            "live\n" +
            note + "publish the fake value instead of readings\x1b[0m\n" +
            "              sensor_name  \x1b[1;36mstring\x1b[0m  \x1b[1;33mrequired\x1b[0m\n" +
            note + "name of the sensor as the controller knows it\x1b[0m\n" +
            "              delta_chg    \x1b[1;36mdouble\x1b[0m  \x1b[1;33mrequired\x1b[0m\n" +
            note +
            "least change that the controller reports (above 0, controller's unit)\x1b[0m\n"
            "              fake.value   \x1b[1;36mdouble\x1b[0m  default 36.0, live   "
            "\x1b[2mwhen fake.active = true\x1b[0m\n" +
            note + "the fake temperature (controller's unit)\x1b[0m\n");
    EXPECT_EQ(inspect({"libmisbehaving.so", "Exiting", "--color=always"}).out,
              "\x1b[1mExiting\x1b[0m\n  \x1b[2merror\x1b[0m       "
              "\x1b[1;31mended the process in its constructor with exit code 3\x1b[0m\n");
}

TEST_F(Inspect, KnowsAnyPluginOfTheInterface) {
    expect_text("Sink", 0,
                R"(  input       double  double
                may stay unconnected
              other   double
                may stay unconnected
              quiet   double                     does not trigger
                may stay unconnected
              float   float
                may stay unconnected
              int     int
                may stay unconnected
              bool    bool
                may stay unconnected
              tick    timersource
                may stay unconnected
              point   /example/geometry.p/point
                may stay unconnected
  event       go                                                   when run = true
  key         only  string  default ""
              run   bool    default false
)",
                "libprobe.so");
    // A setup may add ports; its settings are those without toggled keys.
    expect_text("Probe", 0,
                R"(  output      stopped  int
              late     double    when settings = true and late_port = true
  event       event
  key         throws_in  string  default ""
              throws     string  default "runtime"
              start_ms   int     default 0
              settings   bool    default false
              late_port  bool    default false
)",
                "libprobe.so");
    expect_text("Talker", 0, "              no ports, no keys\n", "libprobe.so");
}

TEST_F(Inspect, RequiredKeysOfABlockThatTakesNoZeroAreFoundAllTheSame) {
    expect_text("Strict", 0,
                R"(  key         divisor     int     required
              flag        bool    required
              level       double  required
              label.text  string  required
)",
                "libprobe.so");
    expect_text("ZeroShy", 0,
                R"(  exports     /com/example/1  com.example.Shy1
  key         count  int     required
              path   string  required
              ratio  float   default 0.1
)");
}

TEST_F(Inspect, KeysAndPortsThatDependOnBooleansAreShownWithThem) {
    expect_text("Conditional", 0,
                R"(  input       gain_in  double  does not trigger  when advanced = true
  key         advanced   bool    default false
              rate       int     default 25, live
              mode.gain  double  default 0.5       when advanced = true
              tracing    bool    default true      when advanced = true
)");
    expect_text("Endless", 0,
                R"(  key         more   bool  default false
              moree  bool  default false  when more = true
)");
}

TEST_F(Inspect, TypeIsBuiltAtMostTwice) {
    const std::string file = path("constructions");
    for (const std::string type : {"Counted", "CountedAndChoosy"}) {
        fs::remove(file);
        (void)fenwa({"inspect", "--plugin-dir", FENWA_TEST_PLUGINS, "libmisbehaving.so", type},
                    {{"FENWA_CONSTRUCTIONS", file}});
        EXPECT_EQ(content_of(file), "constructed\nconstructed\n");
    }
    expect_text("Counted", 0,
                R"(  event       first not set
              second not set
              third not set
              first set           when first = true and second = true and third = true
              second set          when first = true and second = true and third = true
              third set           when first = true and second = true and third = true
  key         first   bool  default false
              second  bool  default false
              third   bool  default false
)");
    expect_text("CountedAndChoosy", 70,
                R"(  key         first   bool    default false
              second  bool    default false
              third   bool    default false
              mode    string  required
  error       threw in its constructor: wants no 1
)");
}

TEST_F(Inspect, BlockThatNeedsABusUnderAConditionIsNotBlamed) {
    const std::string no_bus =
        "  note        threw in its constructor: System.Error.ENOTCONN: Transport endpoint is not "
        "connected, when tells = false and early = true\n";
    expect_text("Caller", 0,
                R"(  event       go
  key         destination  string  default ""
              tells        bool    default true
              early        bool    default false
)" + no_bus,
                "libprobe.so");
    // A block that refuses a made-up value is built with zeros instead of toggled keys.
    expect_text("Terminated", 0,
                R"(  input       own  double
                may stay unconnected
  key         settings     string  required
              needs_a_bus  bool    default false
  setting     termination_cfg.inports  [""]
              termination_cfg.types    ["/prefix/well-known.b/bool"]
)",
                "libprobe.so");
}

TEST_F(Inspect, BlockThatThrowsCrashesOrHangsGetsALineAndKeepsItsKeys) {
    expect_text("Aborting", 70,
                "  key         before  int     required\n"
                "              and     string  default \"after\"\n"
                "  error       crashed in its constructor: SIGABRT\n");
    expect_text("Segfaulting", 70,
                "  key         in_setup  double  default 0.1\n"
                "  error       crashed in setup: SIGSEGV\n");
    expect_text("Hanging", 70,
                "  key         patient  bool  default true\n"
                "  error       did not come back from its constructor within 0.5 s\n");
    expect_text("HangingInSetup", 70, "  error       did not come back from setup within 0.5 s\n");
    expect_text("Exiting", 70,
                "  error       ended the process in its constructor with exit code 3\n");
    expect_text("Choosy", 70,
                "  key         mode  string  required\n"
                "  error       threw in its constructor: the key 'mode' must be a string \"fast\" "
                "or \"slow\", not the string \"1\"\n");
    expect_text(
        "Fragile", 70,
        "  key         handle_with_care  bool  default false\n"
        "  error       crashed in its constructor: SIGABRT, when handle_with_care = true\n");
    expect_text("ThrowingLater", 70, "  error       threw in reconfigure: no change\\nwanted\n");
    expect_text("AbortingAtTheEnd", 70, "  error       crashed in its destructor: SIGABRT\n");
    expect_text("Nothing", 70, "  error       has a factory that returned no block\n",
                "libprobe.so");
    // Its own output and log lines are discarded.
    expect_text("Talkative", 0, "              no ports, no keys\n");
}

TEST_F(Inspect, OneThatMisbehavesDoesNotHideTheOthers) {
    const Ended ended = inspect({"libmisbehaving.so", "--time-limit=0.5"});
    expect_end(ended, 70);
    for (const char* type : {"Aborting\n", "\n\nSegfaulting\n", "\n\nHanging\n",
                             "\n\nHangingInSetup\n", "\n\nExiting\n", "\n\nChoosy\n",
                             "\n\nZeroShy\n  exports     /com/example/1", "\n\nAbortingAtTheEnd\n"})
        EXPECT_NE(ended.out.find(type), std::string::npos) << type << ended.out;
    EXPECT_EQ(lines_with(inspect({"libmisbehaving.so", "Exiting", "--format=json"}).out, "type"),
              R"({"plugin":"libmisbehaving.so","file":"libmisbehaving.so",)"
              R"("types":[{"type":"Exiting","inputs":[],"outputs":[],"event_ports":[],)"
              R"("terminated_inputs":[],"exports":[],"keys":[],"settings":{},)"
              R"("failures":[{"kind":"crashed",)"
              R"("text":"ended the process in its constructor with exit code 3"}]}]})"
              "\n");
}

TEST_F(Inspect, PluginThatCannotBeUsedIsNamedWithTheReason) {
    struct {
        std::string plugin;
        int code;
        std::string sentence;
    } const plugins[]{
        {"libentry-aborts.so", 70, " crashed in its entry point: SIGABRT"},
        {"libentry-hangs.so", 70, " did not come back from its entry point within 0.5 s"},
        {"libno-entry-point.so", 66, " has no entry point 'lib_register_cpp'"},
        {"librefusing.so", 66, " cannot be used: its entry point returned 7"},
        {"libunresolved.so", 66,
         " does not load: libunresolved.so: undefined symbol: _Z22symbol_that_nobody_hasv"}};
    for (const auto& [plugin, code, sentence] : plugins) {
        const Ended ended = inspect({plugin, "--time-limit", "0.5"});
        expect_end(ended, code, "fenwa: the plug-in '" + plugin + "'" + sentence + "\n");
        EXPECT_EQ(ended.out, "");
    }
    expect_end(inspect({"./no/such.so"}), 66, "fenwa: no plug-in at './no/such.so'\n");
    const Ended unknown = inspect({"libprob.so"});
    EXPECT_EQ(unknown.code, 66);
    EXPECT_TRUE(unknown.err.starts_with("fenwa: no plug-in 'libprob.so' (looked in ") &&
                unknown.err.ends_with("); did you mean 'libprobe.so'?\n"))
        << unknown.err;
}

TEST_F(Inspect, EntryPointThatThrowsLeavesTheTypesUntilThen) {
    const Ended throws = inspect({"libentry-throws.so"});
    expect_end(throws, 70,
               "fenwa: the plug-in 'libentry-throws.so' threw in its entry point: no licence\n");
    EXPECT_EQ(throws.out, "Early\n              no ports, no keys\n");
    const Ended oddly = inspect({"liboddly-throwing.so", "--format=json"});
    expect_end(oddly, 70,
               "fenwa: the plug-in 'liboddly-throwing.so' threw in its entry point: something that "
               "is not a std::exception\n");
    EXPECT_EQ(oddly.out,
              R"({"plugin":"liboddly-throwing.so","file":"liboddly-throwing.so","types":[]})"
              "\n");
}

TEST_F(Inspect, PathIsSeenFromTheWorkingFolder) {
    fs::copy_file(std::string(FENWA_TEST_PLUGINS) + "/first/libplaced.so", path("other.so"));
    const Ended ended = run_program({"sh", "-c", "cd \"$0\" && exec \"$1\" inspect ./other.so",
                                     folder().path(), FENWA_PROGRAM});
    expect_end(ended);
    EXPECT_EQ(ended.out, "From-first\n              no ports, no keys\n");
}

TEST_F(Inspect, ShowsTheBuiltInType) {
    const Ended ended = inspect({"Timer"});
    expect_end(ended);
    EXPECT_EQ(ended.out,
              "Timer\n"
              "  output      out   timersource\n"
              "  event       tick\n"
              "  key         interval  int  required, live\n");
    EXPECT_TRUE(inspect({"Timer", "--format=json"})
                    .out.starts_with(R"({"plugin":null,"file":null,"types":[{"type":"Timer",)"));
}

TEST_F(Inspect, FindsTheTypeOfAnInstalledPlugin) {
    const Ended ended = inspect({"TemperatureReader"});
    expect_end(ended);
    EXPECT_EQ(ended.out, inspect({"libfenwa-temperature.so", "TemperatureReader"}).out);
    const Ended unknown = inspect({"TemperaturReader"});
    EXPECT_EQ(unknown.code, 66);
    EXPECT_TRUE(unknown.err.starts_with("fenwa: no plug-in 'TemperaturReader' (looked in "))
        << unknown.err;
}

TEST_F(Inspect, UnknownTypeIsAWrongCommandLineWithTheNearest) {
    const std::string in = " in the plug-in 'libfenwa-temperature.so'";
    const Ended near = inspect({"libfenwa-temperature.so", "TemperaturReader"});
    expect_end(
        near, 2,
        "fenwa: no block type 'TemperaturReader'" + in + "; did you mean 'TemperatureReader'?\n");
    EXPECT_EQ(near.out, "");
    expect_end(inspect({"libfenwa-temperature.so", "Timer"}), 2,
               "fenwa: no block type 'Timer'" + in + "\n");
}

}  // namespace
}  // namespace test
