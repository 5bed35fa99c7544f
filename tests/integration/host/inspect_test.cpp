#include <filesystem>
#include <fstream>

#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

namespace fs = std::filesystem;

/// `fenwa inspect` of plug-ins that are known, and of strangers.
class Inspect : public HostTest {
  protected:
    Ended inspect(const Words& arguments) const {
        Words words{FENWA_PROGRAM, "inspect", "--plugin-dir", FENWA_TEST_PLUGINS};
        words.insert(words.end(), arguments.begin(), arguments.end());
        return without_folder(run_program(words));
    }

    /// One type of the plug-in with types that misbehave, in a time that is soon over.
    Ended misbehaving(const std::string& type) const {
        return inspect({"libmisbehaving.so", type, "--time-limit", "0.5"});
    }

    void expect_text(const std::string& type, int code, const std::string& lines) const {
        const Ended ended = misbehaving(type);
        EXPECT_EQ(ended.code, code) << type;
        EXPECT_EQ(ended.out, type + '\n' + lines);
        EXPECT_EQ(ended.err, "");
    }
};

TEST_F(Inspect, ShowsAllTypesOfTheShippedPluginAsJson) {
    const std::string beside = fs::path(FENWA_PROGRAM).parent_path().string();
    const Ended ended = inspect({"libfenwa-temperature.so", "--format", "json"});
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(
        ended.out,
        R"({"plugin":"libfenwa-temperature.so","file":")" + beside +
            R"(/libfenwa-temperature.so","types":[)"
            R"({"type":"OnScreenControls","inputs":[],"outputs":[],)"
            R"("event_ports":[{"name":"event_port"}],"terminated_inputs":[],"exports":[],)"
            R"("keys":[{"key":"channel","type":"int","required":true},)"
            R"({"key":"wdr","type":"bool","required":false,"default":false}],)"
            R"("settings":{},"failures":[]},)"
            R"({"type":"PowerConsumer",)"
            R"("inputs":[{"name":"timer_in","type":"timersource","triggers":true}],)"
            R"("outputs":[{"name":"power_out","type":"float"}],)"
            R"("event_ports":[{"name":"event_port"}],"terminated_inputs":[],)"
            R"("exports":[{"path":"/com/tarlo/Vipd/PowerConsumer",)"
            R"("interface":"com.tarlo.Vipd.PowerConsumer"}],)"
            R"("keys":[{"key":"channel","type":"int","required":false,"default":0},)"
            R"({"key":"power","type":"float","required":true}],"settings":{},"failures":[]},)"
            R"({"type":"PowerMonitor","inputs":[],)"
            R"("outputs":[{"name":"power_ok_out","type":"bool"}],)"
            R"("event_ports":[{"name":"event_port"}],)"
            R"("terminated_inputs":[{"name":"power_monitor_in","type":"bool","value":false}],)"
            R"("exports":[],"keys":[{"key":"requested_power","type":"float","required":true}],)"
            R"("settings":{"power_ok":false,"termination_cfg.inports":["power_monitor_in"],)"
            R"("termination_cfg.types":["/prefix/well-known.b/bool"],)"
            R"("termination_cfg.power_monitor_in_def":false},"failures":[]},)"
            R"({"type":"PrioritizedTextOverlaySetter","inputs":[],"outputs":[],)"
            R"("event_ports":[],"terminated_inputs":[],"exports":[],)"
            R"("keys":[{"key":"prio_text_overlay","type":"string","required":false,"default":""},)"
            R"({"key":"duration","type":"int","required":false,"default":0}],)"
            R"("settings":{},"failures":[]},)"
            R"({"type":"TemperatureMonitor","inputs":[],)"
            R"("outputs":[{"name":"temperature_ok_out","type":"bool"}],)"
            R"("event_ports":[{"name":"event_port"}],)"
            R"("terminated_inputs":[{"name":"temp_monitor_in","type":"bool","value":true}],)"
            R"("exports":[],"keys":[{"key":"sensor_name","type":"string","required":true},)"
            R"({"key":"low_on_temp","type":"float","required":false,"default":-998.0},)"
            R"({"key":"low_off_temp","type":"float","required":false,"default":-1000.0},)"
            R"({"key":"high_on_temp","type":"float","required":false,"default":998.0},)"
            R"({"key":"high_off_temp","type":"float","required":false,"default":1000.0}],)"
            R"("settings":{"temperature_ok":true,"termination_cfg.inports":["temp_monitor_in"],)"
            R"("termination_cfg.types":["/prefix/well-known.b/bool"],)"
            R"("termination_cfg.temp_monitor_in_def":true},"failures":[]},)"
            R"({"type":"TemperatureReader","inputs":[],)"
            R"("outputs":[{"name":"temperature_out","type":"double"}],)"
            R"("event_ports":[{"name":"event_port"}],"terminated_inputs":[],"exports":[],)"
            R"("keys":[{"key":"fake.active","type":"bool","required":false,"default":false},)"
            R"({"key":"sensor_name","type":"string","required":true},)"
            R"({"key":"delta_chg","type":"double","required":true},)"
            R"({"key":"fake.value","type":"double","required":false,"default":36.0,)"
            R"("when":{"fake.active":true}}],"settings":{},"failures":[]},)"
            R"({"type":"VideoReady",)"
            R"("inputs":[{"name":"rotation_vip0_in","type":"int","triggers":true},)"
            R"({"name":"rotation_vip1_in","type":"int","triggers":true}],"outputs":[],)"
            R"("event_ports":[{"name":"resend"}],"terminated_inputs":[],"exports":[],)"
            R"("keys":[{"key":"channel","type":"int","required":true}],)"
            R"("settings":{"no_video_at_startup":false},"failures":[]}]})"
            "\n");
}

TEST_F(Inspect, ShowsOneTypeInColumns) {
    const Ended ended = inspect({"libfenwa-temperature.so", "TemperatureMonitor"});
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.out,
              "TemperatureMonitor\n"
              "  output      temperature_ok_out  bool\n"
              "  event       event_port\n"
              "  terminated  temp_monitor_in     bool  starts with true\n"
              "  key         sensor_name    string  required\n"
              "              low_on_temp    float   default -998.0\n"
              "              low_off_temp   float   default -1000.0\n"
              "              high_on_temp   float   default 998.0\n"
              "              high_off_temp  float   default 1000.0\n"
              "  setting     temperature_ok                       true\n"
              "              termination_cfg.inports              [\"temp_monitor_in\"]\n"
              "              termination_cfg.types                "
              "[\"/prefix/well-known.b/bool\"]\n"
              "              termination_cfg.temp_monitor_in_def  true\n");
    EXPECT_EQ(ended.err, "");
}

TEST_F(Inspect, SeparatesTypesByAnEmptyLine) {
    const std::string out = inspect({"libfenwa-temperature.so"}).out;
    EXPECT_NE(out.find("\n\nPowerConsumer\n  input       timer_in    timersource\n"
                       "  output      power_out   float\n  event       event_port\n"
                       "  exports     /com/tarlo/Vipd/PowerConsumer  com.tarlo.Vipd.PowerConsumer\n"
                       "  key         channel  int    default 0\n"
                       "              power    float  required\n\nPowerMonitor\n"),
              std::string::npos)
        << out;
}

TEST_F(Inspect, ColoursOnlyWhenTheyAreWanted) {
    EXPECT_EQ(inspect({"libfenwa-temperature.so", "TemperatureReader", "--color=always"}).out,
              "\x1b[1mTemperatureReader\x1b[0m\n"
              "  \x1b[2moutput\x1b[0m      temperature_out  \x1b[1;36mdouble\x1b[0m\n"
              "  \x1b[2mevent\x1b[0m       event_port\n"
              "  \x1b[2mkey\x1b[0m         fake.active  \x1b[1;36mbool\x1b[0m    default false\n"
              "              sensor_name  \x1b[1;36mstring\x1b[0m  \x1b[1;33mrequired\x1b[0m\n"
              "              delta_chg    \x1b[1;36mdouble\x1b[0m  \x1b[1;33mrequired\x1b[0m\n"
              "              fake.value   \x1b[1;36mdouble\x1b[0m  default 36.0   "
              "\x1b[2mwhen fake.active = true\x1b[0m\n");
    EXPECT_EQ(inspect({"libmisbehaving.so", "Exiting", "--color=always"}).out,
              "\x1b[1mExiting\x1b[0m\n  \x1b[2merror\x1b[0m       "
              "\x1b[1;31mended the process in its constructor with exit code 3\x1b[0m\n");
}

TEST_F(Inspect, KnowsAnyPluginOfTheInterface) {
    const Ended sink = inspect({"libprobe.so", "Sink"});
    EXPECT_EQ(sink.code, 0);
    EXPECT_EQ(sink.out,
              "Sink\n"
              "  input       double  double\n"
              "              other   double\n"
              "              quiet   double                     does not trigger\n"
              "              float   float\n"
              "              int     int\n"
              "              bool    bool\n"
              "              tick    timersource\n"
              "              point   /example/geometry.p/point\n"
              "  event       go                                                   "
              "when run = true\n"
              "  key         only  string  default \"\"\n"
              "              run   bool    default false\n");
    // A setup may add ports; its settings are those without toggled keys.
    EXPECT_EQ(inspect({"libprobe.so", "Probe", "--format=json"}).out,
              R"({"plugin":"libprobe.so","file":"libprobe.so","types":[{"type":"Probe",)"
              R"("inputs":[],"outputs":[{"name":"stopped","type":"int"},)"
              R"({"name":"late","type":"double","when":{"settings":true,"late_port":true}}],)"
              R"("event_ports":[{"name":"event"}],"terminated_inputs":[],"exports":[],)"
              R"("keys":[{"key":"throws_in","type":"string","required":false,"default":""},)"
              R"({"key":"throws","type":"string","required":false,"default":"runtime"},)"
              R"({"key":"start_ms","type":"int","required":false,"default":0},)"
              R"({"key":"settings","type":"bool","required":false,"default":false},)"
              R"({"key":"late_port","type":"bool","required":false,"default":false}],)"
              R"("settings":{},"failures":[]}]})"
              "\n");
    EXPECT_EQ(inspect({"libprobe.so", "Talker"}).out, "Talker\n              no ports, no keys\n");
}

TEST_F(Inspect, RequiredKeysOfABlockThatTakesNoZeroAreFoundAllTheSame) {
    const Ended strict = inspect({"libprobe.so", "Strict"});
    EXPECT_EQ(strict.code, 0);
    EXPECT_EQ(strict.out,
              "Strict\n"
              "  key         divisor     int     required\n"
              "              flag        bool    required\n"
              "              level       double  required\n"
              "              label.text  string  required\n");
    expect_text("ZeroShy", 0,
                "  exports     /com/example/1  com.example.Shy1\n"
                "  key         count  int     required\n"
                "              path   string  required\n"
                "              ratio  float   default 0.1\n");
}

TEST_F(Inspect, KeysAndPortsThatDependOnBooleansAreShownWithThem) {
    expect_text("Conditional", 0,
                "  input       gain_in  double  does not trigger  when advanced = true\n"
                "  key         advanced   bool    default false\n"
                "              rate       int     default 25\n"
                "              mode.gain  double  default 0.5    when advanced = true\n"
                "              tracing    bool    default true   when advanced = true\n");
    expect_text("Endless", 0,
                "  key         more   bool  default false\n"
                "              moree  bool  default false  when more = true\n");
}

TEST_F(Inspect, TypeIsBuiltAtMostTwice) {
    const std::string file = (folder().path() / "constructions").string();
    const auto constructions = [&](const std::string& type) {
        fs::remove(file);
        (void)run_program({"env", "FENWA_CONSTRUCTIONS=" + file, FENWA_PROGRAM, "inspect",
                           "--plugin-dir", FENWA_TEST_PLUGINS, "libmisbehaving.so", type});
        std::ifstream in(file);
        return std::string(std::istreambuf_iterator<char>(in), {});
    };
    EXPECT_EQ(constructions("Counted"), "constructed\nconstructed\n");
    EXPECT_EQ(constructions("CountedAndChoosy"), "constructed\nconstructed\n");
    const std::string toggled = "when first = true and second = true and third = true\n";
    expect_text("Counted", 0,
                "  event       first not set\n"
                "              second not set\n"
                "              third not set\n"
                "              first set           " +
                    toggled + "              second set          " + toggled +
                    "              third set           " + toggled +
                    "  key         first   bool  default false\n"
                    "              second  bool  default false\n"
                    "              third   bool  default false\n");
    expect_text("CountedAndChoosy", 70,
                "  key         first   bool    default false\n"
                "              second  bool    default false\n"
                "              third   bool    default false\n"
                "              mode    string  required\n"
                "  error       threw in its constructor: wants no 1\n");
}

TEST_F(Inspect, BlockThatNeedsABusUnderAConditionIsNotBlamed) {
    const Ended ended = inspect({"libprobe.so", "Caller"});
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(
        ended.out,
        "Caller\n"
        "  event       go\n"
        "  key         destination  string  default \"\"\n"
        "              tells        bool    default true\n"
        "              early        bool    default false\n"
        "  note        threw in its constructor: System.Error.ENOTCONN: Transport endpoint is "
        "not connected, when tells = false and early = true\n");
    // A block that refuses a made-up value is built with zeros instead of toggled keys.
    EXPECT_EQ(inspect({"libprobe.so", "Terminated"}).out,
              "Terminated\n"
              "  input       own  double\n"
              "  key         settings     string  required\n"
              "              needs_a_bus  bool    default false\n"
              "  setting     termination_cfg.inports  [\"\"]\n"
              "              termination_cfg.types    [\"/prefix/well-known.b/bool\"]\n");
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
    const Ended nothing = inspect({"libprobe.so", "Nothing"});
    EXPECT_EQ(nothing.code, 70);
    EXPECT_EQ(nothing.out, "Nothing\n  error       has a factory that returned no block\n");
}

TEST_F(Inspect, OneThatMisbehavesDoesNotHideTheOthers) {
    const Ended ended = inspect({"libmisbehaving.so", "--time-limit=0.5"});
    EXPECT_EQ(ended.code, 70);
    EXPECT_EQ(ended.err, "");
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

TEST_F(Inspect, WhatABlockSaysIsNotHeard) {
    expect_text("Talkative", 0, "              no ports, no keys\n");
}

TEST_F(Inspect, EntryPointThatMisbehavesGives70AndTheTypesUntilThen) {
    const auto entry = [this](const std::string& does) {
        return inspect({"libentry-" + does + ".so", "--time-limit", "0.5"});
    };
    const Ended throws = entry("throws");
    EXPECT_EQ(throws.code, 70);
    EXPECT_EQ(throws.out, "Early\n              no ports, no keys\n");
    EXPECT_EQ(throws.err,
              "fenwa: the plug-in 'libentry-throws.so' threw in its entry point: no licence\n");
    const Ended aborts = entry("aborts");
    EXPECT_EQ(aborts.code, 70);
    EXPECT_EQ(aborts.out, "");
    EXPECT_EQ(aborts.err,
              "fenwa: the plug-in 'libentry-aborts.so' crashed in its entry point: SIGABRT\n");
    const Ended hangs = entry("hangs");
    EXPECT_EQ(hangs.code, 70);
    EXPECT_EQ(hangs.out, "");
    EXPECT_EQ(hangs.err,
              "fenwa: the plug-in 'libentry-hangs.so' did not come back from its entry point "
              "within 0.5 s\n");
    const Ended oddly = inspect({"liboddly-throwing.so", "--format=json"});
    EXPECT_EQ(oddly.code, 70);
    EXPECT_EQ(oddly.out,
              R"({"plugin":"liboddly-throwing.so","file":"liboddly-throwing.so","types":[]})"
              "\n");
    EXPECT_EQ(oddly.err,
              "fenwa: the plug-in 'liboddly-throwing.so' threw in its entry point: something that "
              "is not a std::exception\n");
}

TEST_F(Inspect, FileThatIsNoPluginGives66) {
    const std::map<std::string, std::string> sentences{
        {"libno-entry-point.so",
         "the plug-in 'libno-entry-point.so' has no entry point 'lib_register_cpp'"},
        {"librefusing.so",
         "the plug-in 'librefusing.so' cannot be used: its entry point returned 7"},
        {"libunresolved.so",
         "the plug-in 'libunresolved.so' does not load: libunresolved.so: undefined symbol: "
         "_Z22symbol_that_nobody_hasv"},
        {"./no/such.so", "no plug-in at './no/such.so'"}};
    for (const auto& [plugin, sentence] : sentences) {
        const Ended ended = inspect({plugin});
        EXPECT_EQ(ended.code, 66);
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(ended.err, "fenwa: " + sentence + "\n");
    }
    const Ended unknown = inspect({"libprob.so"});
    EXPECT_EQ(unknown.code, 66);
    EXPECT_TRUE(unknown.err.starts_with("fenwa: no plug-in 'libprob.so' (looked in ") &&
                unknown.err.ends_with("); did you mean 'libprobe.so'?\n"))
        << unknown.err;
}

TEST_F(Inspect, PathIsSeenFromTheWorkingFolder) {
    fs::copy_file(std::string(FENWA_TEST_PLUGINS) + "/first/libplaced.so",
                  folder().path() / "other.so");
    const Ended ended = run_program({"sh", "-c", "cd \"$0\" && exec \"$1\" inspect ./other.so",
                                     folder().path().string(), FENWA_PROGRAM});
    EXPECT_EQ(ended.code, 0) << ended.err;
    EXPECT_EQ(ended.out, "From-first\n              no ports, no keys\n");
}

TEST_F(Inspect, UnknownTypeIsAWrongCommandLineWithTheNearest) {
    const Ended near = inspect({"libfenwa-temperature.so", "TemperaturReader"});
    EXPECT_EQ(near.code, 2);
    EXPECT_EQ(near.out, "");
    EXPECT_EQ(near.err,
              "fenwa: no block type 'TemperaturReader' in the plug-in 'libfenwa-temperature.so'; "
              "did you mean 'TemperatureReader'?\n");
    const Ended far = inspect({"libfenwa-temperature.so", "Timer"});
    EXPECT_EQ(far.code, 2);
    EXPECT_EQ(far.err, "fenwa: no block type 'Timer' in the plug-in 'libfenwa-temperature.so'\n");
}

}  // namespace
}  // namespace test
