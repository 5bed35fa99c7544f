#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

class EventLines : public HostTest {};

const std::string ready = "{\"event\":\"ready\",\"time\":0}\n";
const std::string done = "{\"event\":\"exit\",\"time\":0,\"status\":0}\n";

TEST_F(EventLines, OutputsOfEveryDatatype) {
    const Ended ended = run(probes("[blocks.v]\ntype = \"Values\"\n"), {"--for", "0.1"});
    EXPECT_EQ(ended.code, 0);
    const auto output = [](const std::string& port, const std::string& type,
                           const std::string& value) {
        return R"({"event":"output","time":0,"block":"v","port":")" + port + R"(","type":")" +
               type + R"(","value":)" + value + "}\n";
    };
    std::string expected =
        output("float", "float", "36.599998474121094") + output("bool", "bool", "true") +
        output("double", "double", "36.6") + output("int", "int", "-7") +
        output("tick", "timersource", R"({"ticks":9007199254740993,"period_ms":250})") +
        output("point", "/example/geometry.p/point", "null") + ready;
    for (const char* value : {R"("nan")", R"("inf")", R"("-inf")", "-0.0", "2.0"})
        expected += output("float", "float", value) + output("double", "double", value);
    EXPECT_EQ(without_times(ended.out), expected + done);
}

TEST_F(EventLines, LogLinesAreGivenWhole) {
    const Ended ended = run(probes("[blocks.t]\ntype = \"Talker\"\n"), {"--for", "0.1"});
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
    const auto log = [](const std::string& level, const std::string& message) {
        return R"({"event":"log","time":0,"level":)" + level + R"(,"message":")" + message +
               "\"}\n";
    };
    EXPECT_EQ(without_times(ended.out),
              log("1", "an error") + log("2", "a warning") + log("4", "an information") +
                  log("4", "ends its line\\n") + log("4", "two\\nlines") +
                  log("4", R"(quotes \" and \\ and tabs\t)") +
                  log("4", "a byte \xEF\xBF\xBD that is no text, and ü that is") + log("4", "") +
                  ready + done);
}

TEST_F(EventLines, DebugDataOfEveryKind) {
    const Ended ended = run(probes("[blocks.d]\ntype = \"Debugger\"\n"), {"--for", "0.1"});
    EXPECT_EQ(ended.code, 0);
    const auto debug = [](const std::string& key, const std::string& value) {
        return R"({"event":"debug","time":0,"key":")" + key + R"(","value":)" + value + "}\n";
    };
    EXPECT_EQ(without_times(ended.out), debug("a_text", "\"some text\"") + debug("a_number", "-5") +
                                            debug("a_float", "36.599998474121094") +
                                            debug("a_double", "36.6") + debug("a_truth", "true") +
                                            debug("a_truth", "true") + ready + done);
}

TEST_F(EventLines, EachIsReadableAtOnce) {
    Process host(run_command(probes("[blocks.p]\ntype = \"Probe\"\n"), {"--bus", bus()}));
    // The program runs on: what is here now has been flushed.
    const auto line = host.wait_for_line(
        [](const std::string& text) { return text.find("p: run") != std::string::npos; });
    ASSERT_TRUE(line);
    EXPECT_EQ(without_times(*line), R"({"event":"log","time":0,"level":4,"message":"p: run"})");
    EXPECT_EQ(host.terminate().code, 0);
}

TEST_F(EventLines, LinesOfSeveralThreadsStayWhole) {
    const Ended ended =
        run(probes("[blocks.choir]\ntype = \"Choir\"\ntimes = 500\n"), {"--for", "0.1"});
    EXPECT_EQ(ended.code, 0);
    std::size_t sung = 0;
    std::size_t beats = 0;
    std::istringstream lines(ended.out);
    for (std::string line; std::getline(lines, line);) {
        const auto event = nlohmann::json::parse(line);  // throws where two lines are mixed
        sung += event.at("event") == "log" ? 1U : 0U;
        beats += event.at("event") == "debug" ? 1U : 0U;
    }
    EXPECT_GT(beats, 0U);
    EXPECT_EQ(sung, 2000U);
}

TEST_F(EventLines, TimesAreSecondsSinceTheStart) {
    const Ended ended = run("[blocks.t]\ntype = \"Timer\"\ninterval = 100\n", {"--for", "0.35"});
    std::istringstream lines(ended.out);
    std::vector<double> times;
    for (std::string line; std::getline(lines, line);)
        times.push_back(nlohmann::json::parse(line).at("time").get<double>());
    ASSERT_EQ(times.size(), 5U) << ended.out;  // ready, three ticks, exit
    EXPECT_TRUE(std::is_sorted(times.begin(), times.end()));
    EXPECT_GE(times.front(), 0.0);
    EXPECT_LT(times.front(), 0.5);
    EXPECT_NEAR(times[1] - times[0], 0.1, 0.05);
    EXPECT_NEAR(times[4] - times[0], 0.35, 0.1);
}

TEST_F(EventLines, MembersStandInTheirOrder) {
    // Compared as text everywhere above; this says it once for the longest line of all.
    const Ended ended = run("[blocks.t]\ntype = \"Timer\"\ninterval = 20\n", {"--for", "0.03"});
    EXPECT_EQ(lines_with(without_times(ended.out), "output"),
              R"({"event":"output","time":0,"block":"t","port":"out","type":"timersource",)"
              R"("value":{"ticks":1,"period_ms":20}})"
              "\n");
}

}  // namespace
}  // namespace test
