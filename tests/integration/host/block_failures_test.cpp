#include <csignal>

#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

/// The phase in which the second of three probes throws, and what they log until the end.
struct Failure : Case {
    std::string log;
};

class BlockFailure : public HostTest, public testing::WithParamInterface<Failure> {
  protected:
    Ended run_throwing(const std::string& what) const {
        return run(block("first", "Probe") +
                       block("second", "Probe",
                             "throws_in = \"" + GetParam().name + "\", throws = \"" + what + "\"") +
                       block("third", "Probe"),
                   {"--for", "0.1"});
    }

    /// Expects the sentence in the form of every mistake, and that the run does not go on.
    void expect_failure(const Ended& ended, int code, const std::string& sentence) const {
        EXPECT_EQ(ended.code, code);
        EXPECT_NE(ended.err.find(": error: block 'second' (Probe)" + sentence +
                                 "\nblocks.second = {type = \"Probe\", "),
                  std::string::npos)
            << ended.err;
        EXPECT_TRUE(ended.err.starts_with("graph.toml:3:")) << ended.err;
        EXPECT_TRUE(ended.err.ends_with("^\ngraph.toml: 1 error\n")) << ended.err;
        EXPECT_TRUE(without_times(ended.out).ends_with(exit_line(code))) << ended.out;
        const bool is_ready = GetParam().name == "run" || GetParam().name == "stop";
        EXPECT_EQ(count_lines(ended.out, "\"ready\""), is_ready ? 1 : 0);
    }

    static std::string threw() {
        const std::string& phase = GetParam().name;
        return " threw in " + (phase == "constructor" ? "its constructor" : phase) + ": ";
    }
};

TEST_P(BlockFailure, StopsAndDestroysTheBlocksThatThereAreInReverse) {
    const Ended ended = run_throwing("runtime");
    expect_failure(ended, 70, threw() + "thrown on purpose");
    EXPECT_EQ(messages(ended.out), GetParam().log);
}

TEST_P(BlockFailure, OfTheBusIsQuotedAndMayBeOfAnyType) {
    // The constructor is passed without a bus, because it may need one.
    expect_failure(run_throwing("sdbus"), 70, threw() + "com.example.Error.Broken: it broke");
    expect_failure(run_throwing("odd"), 70, threw() + "something that is not a std::exception");
}

TEST_P(BlockFailure, OfASettingGives78AtTheLineOfItsKeyOrOfTheBlock) {
    const Ended ended = run_throwing("configuration");
    expect_failure(ended, 78,
                   ": the key 'throws' must be a word that is not there, not another one");
    // In these two phases it is found before anything is started.
    const bool is_early = GetParam().name == "constructor" || GetParam().name == "setup";
    EXPECT_EQ(messages(ended.out), is_early ? "" : GetParam().log);
    expect_failure(run_throwing("missing"), 78, ": the required key 'absent' (an int) is missing");
}

const std::string constructors = "first: constructor\nsecond: constructor\nthird: constructor\n";
const std::string setups = constructors + "first: setup\nsecond: setup\nthird: setup\n";
const std::string starts = setups + "first: start\nsecond: start\nthird: start\n";
const std::string stops = "third: stop\nsecond: stop\nfirst: stop\n";
const std::string destructors = "third: destructor\nsecond: destructor\nfirst: destructor\n";

INSTANTIATE_TEST_SUITE_P(
    In, BlockFailure,
    testing::Values(
        Failure{{"constructor"},
                "first: constructor\nsecond: constructor\nfirst: stop\n"
                "first: destructor\n"},
        Failure{{"setup"},
                constructors + "first: setup\nsecond: setup\nfirst: stop\n" + destructors},
        Failure{{"start"}, setups + "first: start\nsecond: start\nfirst: stop\n" + destructors},
        Failure{{"run"}, starts + "first: run\nsecond: run\n" + stops + destructors},
        Failure{{"stop"}, starts + "first: run\nsecond: run\nthird: run\n" + stops + destructors}),
    name_of<Failure>);

using Crash = HostTest;

TEST_F(Crash, OfAThreadIsSaidBeforeTheHostDiesOfIt) {
    const Ended ended =
        run(block("b", "Stubborn", "in = \"run\", does = \"a thread\""), {"--for", "0.2"});
    expect_end(ended, -1, "fenwa: something outside of the blocks' operations crashed (SIGSEGV)\n");
    EXPECT_EQ(ended.signal, SIGSEGV);
    EXPECT_EQ(messages(ended.out), "b: a thread in run\n");
}

}  // namespace
}  // namespace test
