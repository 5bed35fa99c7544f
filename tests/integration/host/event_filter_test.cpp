#include <chrono>

#include "tests/integration/host/host_test.hpp"
#include "tests/support/pattern.hpp"

namespace test {
namespace {

/// What a run writes, and in which form, as its options choose.
class EventFilter : public HostTest {
  protected:
    /// A run of blocks with every kind of event, in text without times.
    Ended run_all(const Words& options, const Environment& environment = {}) const {
        return run(block("p", "Probe", "settings = true") + block("d", "Debugger") +
                       block("s", "Source", "runs = 2") + block("t", "Talker") +
                       block("m", "Timer", "interval = 10"),
                   Words{"--for", "0.1", "--format", "text", "--timestamps", "none"} + options,
                   environment);
    }
    /// Runs a host whose stdout looks like systemd's journal.
    Ended run_under_systemd(const Words& options) const {
        const std::string script =
            "JOURNAL_STREAM=$(stat -L -c %d:%i /proc/$$/fd/1); export JOURNAL_STREAM; exec \"$@\"";
        return run_program(
            Words{"sh", "-c", script, "sh"} +
            run_command(
                block("p", "Probe", "settings = true") + block("s", "Source", "runs = 1"),
                Words{"--for", "0.1", "--format", "text", "--timestamps", "none"} + options));
    }
};

const std::string values_of_setup = R"(p setup truth = true
p setup count = 3
p setup ratio = 0.5
p setup word = ["one"]
p setup list = ["a","b"]
p setup none = []
)";
const std::string values_of_outputs = "s.out = 1.0\ns.out = 2.0\np.stopped = 1\n";

TEST_F(EventFilter, QuietLeavesValuesOut) {
    const Ended ended = run_all({"--quiet"});
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.out, "");
    EXPECT_NE(ended.err.find("p: info: p: run\n"), std::string::npos) << ended.err;
    EXPECT_NE(ended.err.find("fenwa: ready\n"), std::string::npos) << ended.err;
}

TEST_F(EventFilter, ChoosesEvents) {
    EXPECT_EQ(run_all({"--events", "setup"}).out, values_of_setup);
    EXPECT_EQ(run_all({"--events", "output"}).out, values_of_outputs);
    EXPECT_EQ(run_all({"--events=setup,output"}).out, values_of_setup + values_of_outputs);
    EXPECT_EQ(count_lines(run_all({"--events=debug"}).out, "debug a_"), 6);
    EXPECT_EQ(count_lines(run_all({"--events=debug"}).out), 6);
    EXPECT_EQ(run_all({"--events", "output,debug"}).err, "fenwa: ready\nfenwa: stopped\n");
    EXPECT_EQ(run_all({"--events", "log"}).out, "");
}

TEST_F(EventFilter, ChoosesOutputs) {
    EXPECT_EQ(run_all({"--events=output", "--output", "p.stopped"}).out, "p.stopped = 1\n");
    EXPECT_EQ(run_all({"--events=output", "--output", "[ps].*"}).out, values_of_outputs);
    EXPECT_EQ(run_all({"--events=output", "--output", "p.*", "--output=s.*"}).out,
              values_of_outputs);
    EXPECT_EQ(run_all({"--output", "p.*"}).err.find("matches"), std::string::npos);
}

TEST_F(EventFilter, ChosenTicksOfATimerAreWritten) {
    const std::string out = run_all({"--events=output", "--output", "m.*"}).out;
    EXPECT_TRUE(out.starts_with("m.out = {\"ticks\":1,\"period_ms\":10}\n")) << out;
}

TEST_F(EventFilter, WarnsOfAPatternThatNoOutputMatches) {
    const Ended ended = run_all({"--events=output", "--output", "p.*", "--output", "p.stoped"});
    expect_end(ended, 0,
               "fenwa: no output matches 'p.stoped'; did you mean 'p.stopped'?\nfenwa: ready\n"
               "fenwa: stopped\n");
}

TEST_F(EventFilter, ChoosesLogLinesByTheirLevel) {
    const auto lines = [this](const std::string& level) {
        return lines_with(run_all({"--log-level", level}).err, "t: ");
    };
    EXPECT_EQ(lines("error"), "t: error: an error\n");
    EXPECT_EQ(lines("warning"), "t: error: an error\nt: warning: a warning\n");
    EXPECT_EQ(count_lines(lines("info")), 8);
}

TEST_F(EventFilter, CountsForJsonToo) {
    const Ended ended =
        run(block("p", "Probe", "settings = true") + block("t", "Talker"),
            {"--for=0.1", "--events=output,log", "--output=p.*", "--log-level=error"});
    expect_end(ended);
    EXPECT_EQ(without_times(ended.out), log_line("t", "an error", 1) + ready_line +
                                            output_line("p", "stopped", "int", "1") + exit_line(0));
}

TEST_F(EventFilter, LeavesValuesOutOfTheJournalUnlessTheyAreAskedFor) {
    EXPECT_EQ(run_under_systemd({}).out, "");
    EXPECT_NE(run_under_systemd({}).err.find("p: info: p: run\n"), std::string::npos);
    EXPECT_EQ(run_under_systemd({"--output", "s.*"}).out, "s.out = 1.0\n");
    EXPECT_EQ(run_under_systemd({"--events", "setup"}).out, values_of_setup);
}

/// The time in front of the lines.
class Timestamps : public HostTest {
  protected:
    static void expect_all_match(const std::string& lines, const char* pattern) {
        EXPECT_GT(count_lines(lines), 0);
        EXPECT_FALSE(Pattern("(" + std::string(pattern) + "\n)+").match(lines).empty()) << lines;
    }
    Ended run_block(const Words& options, const Environment& environment = {}) const {
        return run(block("p", "Probe"), Words{"--for", "0.05", "--format", "text"} + options,
                   environment);
    }
};

TEST_F(Timestamps, AreSecondsSinceTheStartOfTheHost) {
    const Ended ended = run_block({});
    expect_all_match(ended.out, R"(   [0-5]\.\d{3}  p\.stopped = 1)");
    expect_all_match(lines_with(ended.err, "info"), R"(   [0-5]\.\d{3}  p: info: p: \w+)");
}

TEST_F(Timestamps, CanBeTheTimeOfDay) {
    const Ended ended = run_block({"--timestamps", "wall"}, {{"TZ", "UTC"}});
    const char* const line = R"(20\d\d-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}\+00:00  p.*)";
    expect_all_match(ended.out, line);
    expect_all_match(lines_with(ended.err, "info"), line);
}

TEST_F(Timestamps, CanBeLeftOut) {
    const Ended ended = run_block({"--timestamps=none"});
    EXPECT_EQ(ended.out, "p.stopped = 1\n");
    expect_all_match(lines_with(ended.err, "info"), R"(p: info: p: \w+)");
}

TEST_F(Timestamps, CountFromTheStartThatIsSharedWithOtherPrograms) {
    const auto now = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now().time_since_epoch());
    const Environment start{
        {"FENWA_START", std::to_string((now - std::chrono::seconds(1000)).count())}};
    const Ended ended = run_block({}, start);
    expect_all_match(ended.out, R"(10\d\d\.\d{3}  p\.stopped = 1)");
    expect_all_match(lines_with(ended.err, "info"), R"(10\d\d\.\d{3}  p: info: p: \w+)");
    const std::string json = run(block("p", "Probe"), {"--for", "0.05"}, start).out;
    expect_all_match(json, R"(\{"event":"\w+","time":10\d\d\.\d+[,}].*)");
}

}  // namespace
}  // namespace test
