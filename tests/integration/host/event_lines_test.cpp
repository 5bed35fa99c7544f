#include <sstream>

#include "tests/integration/host/host_test.hpp"
#include "tests/support/json_printing.hpp"

namespace test {
namespace {

class EventLines : public HostTest {
  protected:
    /// Runs one block of this type. @returns its events without times.
    std::string events_of(const std::string& type) const {
        const Ended ended = run(block("b", type), {"--for", "0.1"});
        expect_end(ended);
        return without_times(ended.out);
    }
};

TEST_F(EventLines, OutputsOfEveryDatatype) {
    std::string expected =
        output_line("b", "float", "float", "36.599998474121094") +
        output_line("b", "bool", "bool", "true") + output_line("b", "double", "double", "36.6") +
        output_line("b", "int", "int", "-7") +
        output_line("b", "tick", "timersource", R"({"ticks":9007199254740993,"period_ms":250})") +
        output_line("b", "point", "/example/geometry.p/point", "null") + ready_line;
    for (const char* value : {R"("nan")", R"("inf")", R"("-inf")", "-0.0", "2.0"})
        expected +=
            output_line("b", "float", "float", value) + output_line("b", "double", "double", value);
    EXPECT_EQ(events_of("Values"), expected + exit_line(0));
}

TEST_F(EventLines, LogLinesOfAnUnknownBlockNameNone) {
    const Ended ended = run(block("choir", "Choir", "times = 1"), {"--for", "0.1"});
    expect_end(ended);
    EXPECT_EQ(count_lines(ended.out, R"("event":"log")"), 4);
    EXPECT_EQ(count_lines(without_times(ended.out), R"("event":"log","time":0,"level":4)"), 4)
        << ended.out;
}

TEST_F(EventLines, LogLinesAreGivenWhole) {
    EXPECT_EQ(events_of("Talker"),
              log_line("b", "an error", 1) + log_line("b", "a warning", 2) +
                  log_line("b", "an information") + log_line("b", "ends its line\\n") +
                  log_line("b", "two\\nlines") + log_line("b", R"(quotes \" and \\ and tabs\t)") +
                  log_line("b", "a byte \xEF\xBF\xBD that is no text, and ü that is") +
                  log_line("b", "") + ready_line + exit_line(0));
}

TEST_F(EventLines, DebugDataOfEveryKind) {
    std::string expected;
    for (const std::string pair :
         {R"("a_text","value":"some text")", R"("a_number","value":-5)",
          R"("a_float","value":36.599998474121094)", R"("a_double","value":36.6)",
          R"("a_truth","value":true)", R"("a_truth","value":true)"})
        expected += R"({"event":"debug","time":0,"key":)" + pair + "}\n";
    EXPECT_EQ(events_of("Debugger"), expected + ready_line + exit_line(0));
}

TEST_F(EventLines, LinesOfSeveralThreadsStayWhole) {
    const Ended ended = run(block("choir", "Choir", "times = 500"), {"--for", "0.1"});
    expect_end(ended);
    // Throws where two lines are mixed.
    EXPECT_EQ(count_lines(messages(ended.out)), 2000);
    EXPECT_GT(count_lines(ended.out, "\"debug\""), 0);
}

TEST_F(EventLines, TimesAreSecondsSinceTheStart) {
    const Ended ended = run(block("t", "Timer", "interval = 100"), {"--for", "0.35"});
    std::istringstream lines(ended.out);
    std::vector<double> times;
    for (std::string line; std::getline(lines, line);)
        times.push_back(common::parse_json(line, "the text").at("time").get<double>());
    ASSERT_EQ(times.size(), 5U) << ended.out;  // ready, three ticks, exit
    EXPECT_TRUE(std::is_sorted(times.begin(), times.end()));
    EXPECT_GE(times.front(), 0.0);
    EXPECT_LT(times.front(), 0.5);
    EXPECT_NEAR(times[1] - times[0], 0.1, 0.05);
    EXPECT_NEAR(times[4] - times[0], 0.35, 0.1);
}

}  // namespace
}  // namespace test
