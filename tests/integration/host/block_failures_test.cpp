#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

/// Three probes, of which the second one throws.
class BlockFailure : public HostTest {
  protected:
    Ended run_throwing(const std::string& phase, const std::string& what = "runtime") const {
        return run(
            probes("[blocks.first]\ntype = \"Probe\"\n[blocks.second]\ntype = \"Probe\"\n"
                   "throws_in = \"" +
                   phase + "\"\nthrows = \"" + what + "\"\n[blocks.third]\ntype = \"Probe\"\n"),
            {"--for", "0.1"});
    }

    /// A BlockFailure in the form of every mistake.
    static std::string threw(const std::string& phase, const std::string& what) {
        return "graph.toml:4:9: error: block 'second' (Probe) threw in " + phase + ": " + what +
               "\n[blocks.second]\n        ^\ngraph.toml: 1 error\n";
    }

    static std::string last_line(const std::string& text) {
        return without_times(text.substr(text.rfind('\n', text.size() - 2) + 1));
    }
};

const std::string failed = "{\"event\":\"exit\",\"time\":0,\"status\":70}\n";
const std::string constructors = "first: constructor\nsecond: constructor\nthird: constructor\n";
const std::string setups = "first: setup\nsecond: setup\nthird: setup\n";
const std::string destructors = "third: destructor\nsecond: destructor\nfirst: destructor\n";

TEST_F(BlockFailure, InTheConstructor) {
    const Ended ended = run_throwing("constructor");
    EXPECT_EQ(ended.code, 70);
    EXPECT_EQ(ended.err, threw("its constructor", "thrown on purpose"));
    EXPECT_EQ(messages(ended.out),
              "first: constructor\nsecond: constructor\nfirst: stop\nfirst: destructor\n");
    EXPECT_EQ(last_line(ended.out), failed);
    EXPECT_EQ(lines_with(ended.out, "\"ready\""), "");
}

TEST_F(BlockFailure, InTheSetup) {
    const Ended ended = run_throwing("setup");
    EXPECT_EQ(ended.code, 70);
    EXPECT_EQ(ended.err, threw("setup", "thrown on purpose"));
    EXPECT_EQ(messages(ended.out),
              constructors + "first: setup\nsecond: setup\nfirst: stop\n" + destructors);
    EXPECT_EQ(last_line(ended.out), failed);
}

TEST_F(BlockFailure, InTheStart) {
    const Ended ended = run_throwing("start");
    EXPECT_EQ(ended.code, 70);
    EXPECT_EQ(ended.err, threw("start", "thrown on purpose"));
    EXPECT_EQ(messages(ended.out),
              constructors + setups + "first: start\nsecond: start\nfirst: stop\n" + destructors);
    EXPECT_EQ(last_line(ended.out), failed);
    EXPECT_EQ(lines_with(ended.out, "\"ready\""), "");
}

TEST_F(BlockFailure, InARun) {
    const Ended ended = run_throwing("run");
    EXPECT_EQ(ended.code, 70);
    EXPECT_EQ(ended.err, threw("run", "thrown on purpose"));
    EXPECT_EQ(messages(ended.out),
              constructors + setups +
                  "first: start\nsecond: start\nthird: start\nfirst: run\nsecond: run\n"
                  "third: stop\nsecond: stop\nfirst: stop\n" +
                  destructors);
    EXPECT_EQ(last_line(ended.out), failed);
}

TEST_F(BlockFailure, InTheStopKeepsNoOtherFromStopping) {
    const Ended ended = run_throwing("stop");
    EXPECT_EQ(ended.code, 70);
    EXPECT_EQ(ended.err, threw("stop", "thrown on purpose"));
    EXPECT_EQ(messages(ended.out),
              constructors + setups +
                  "first: start\nsecond: start\nthird: start\nfirst: run\nsecond: run\n"
                  "third: run\nthird: stop\nsecond: stop\nfirst: stop\n" +
                  destructors);
    EXPECT_EQ(last_line(ended.out), failed);
}

TEST_F(BlockFailure, SaysWhatABusCallGave) {
    EXPECT_EQ(run_throwing("start", "sdbus").err,
              threw("start", "com.example.Error.Broken: it broke"));
    // A dry construction lets this pass, because it may have wanted a bus.
    EXPECT_EQ(run_throwing("constructor", "sdbus").err,
              threw("its constructor", "com.example.Error.Broken: it broke"));
}

TEST_F(BlockFailure, MayBeNoException) {
    for (const char* phase : {"setup", "start", "run", "stop"}) {
        const Ended ended = run_throwing(phase, "odd");
        EXPECT_EQ(ended.code, 70) << phase;
        EXPECT_EQ(ended.err, threw(phase, "something that is not a std::exception"));
    }
    EXPECT_EQ(run_throwing("constructor", "odd").err,
              threw("its constructor", "something that is not a std::exception"));
}

TEST_F(BlockFailure, FactoryWithoutBlockIsFoundBeforeAnythingStarts) {
    const Ended ended =
        run(probes("[blocks.first]\ntype = \"Probe\"\n[blocks.second]\n"
                   "type = \"Nothing\"\n"));
    EXPECT_EQ(ended.code, 78);
    EXPECT_EQ(messages(ended.out), "");
}

TEST_F(BlockFailure, ConfigurationErrorGives78AtTheLineOfItsKey) {
    for (const char* phase : {"constructor", "setup", "start", "run", "stop"}) {
        const Ended ended = run_throwing(phase, "configuration");
        EXPECT_EQ(ended.code, 78) << phase;
        EXPECT_EQ(ended.err,
                  "graph.toml:7:1: error: block 'second' (Probe): the key 'throws' must be a word "
                  "that is not there, not another one\nthrows = \"configuration\"\n^\n"
                  "graph.toml: 1 error\n")
            << phase;
        EXPECT_EQ(last_line(ended.out), "{\"event\":\"exit\",\"time\":0,\"status\":78}\n");
    }
}

TEST_F(BlockFailure, ConfigurationErrorForAMissingKeyIsAtTheBlock) {
    for (const char* phase : {"constructor", "setup", "start", "run", "stop"}) {
        const Ended ended = run_throwing(phase, "missing");
        EXPECT_EQ(ended.code, 78) << phase;
        EXPECT_EQ(ended.err,
                  "graph.toml:4:9: error: block 'second' (Probe): the required key 'absent' (an "
                  "int) is missing\n[blocks.second]\n        ^\ngraph.toml: 1 error\n")
            << phase;
    }
}

TEST_F(BlockFailure, ConfigurationErrorOfTheConstructorIsFoundBeforeAnythingStarts) {
    EXPECT_EQ(messages(run_throwing("constructor", "configuration").out), "");
    EXPECT_EQ(messages(run_throwing("setup", "configuration").out), "");
}

TEST_F(BlockFailure, ConfigurationErrorStopsTheOthersAsAnyThrowDoes) {
    EXPECT_EQ(messages(run_throwing("start", "configuration").out),
              constructors + setups + "first: start\nsecond: start\nfirst: stop\n" + destructors);
}

}  // namespace
}  // namespace test
