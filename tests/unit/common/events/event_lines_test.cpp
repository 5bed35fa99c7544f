#include "common/events/event_lines.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <string>
#include <thread>

#include <nlohmann/json.hpp>

#include "tests/support/pattern.hpp"

namespace common {
namespace {

/// Sets or removes FENWA_START until the end of the test.
class StartInEnvironment {
  public:
    explicit StartInEnvironment(const std::optional<std::string>& start) {
        if (start)
            setenv(Stopwatch::variable, start->c_str(), 1);
        else
            unsetenv(Stopwatch::variable);
    }
    StartInEnvironment(const StartInEnvironment&) = delete;
    StartInEnvironment& operator=(const StartInEnvironment&) = delete;
    ~StartInEnvironment() { unsetenv(Stopwatch::variable); }
};

std::string microseconds_ago(std::chrono::microseconds time) {
    const auto now = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now().time_since_epoch());
    return std::to_string((now - time).count());
}

TEST(StopwatchTest, CountsFromItsConstruction) {
    const StartInEnvironment none(std::nullopt);
    const Stopwatch watch;
    EXPECT_GE(watch.seconds(), 0.0);
    EXPECT_LT(watch.seconds(), 1.0);
}

TEST(StopwatchTest, CountsFromTheStartInTheEnvironment) {
    const StartInEnvironment start(microseconds_ago(std::chrono::seconds(5)));
    const Stopwatch watch;
    EXPECT_GE(watch.seconds(), 5.0);
    EXPECT_LT(watch.seconds(), 6.0);
}

TEST(StopwatchTest, GivesItsStartToOtherPrograms) {
    const StartInEnvironment start("17");
    EXPECT_EQ(Stopwatch().to_environment(), "FENWA_START=17");
}

TEST(StopwatchTest, IgnoresAStartThatIsWrongOrInTheFuture) {
    for (const std::string& wrong :
         {microseconds_ago(std::chrono::seconds(-60)), std::string("-1"), std::string(""),
          std::string("12 "), std::string("yesterday"), std::string("99999999999999999999")}) {
        const StartInEnvironment start(wrong);
        const Stopwatch watch;
        EXPECT_GE(watch.seconds(), 0.0) << wrong;
        EXPECT_LT(watch.seconds(), 1.0) << wrong;
    }
}

/// The line of text "hello" with such timestamps.
std::string line_with(Timestamps timestamps) {
    std::ostringstream stream;
    StandardOutput out([] {}, stream);
    EventLines(out, EventFormat::text, ColorChoice::never, timestamps)
        .write_text([](std::string& line) { line += "hello"; });
    return stream.str();
}

void expect_match(const std::string& line, const char* pattern) {
    EXPECT_FALSE(test::Pattern(pattern).match(line).empty()) << line;
}

TEST(EventLinesTest, TextHasTheSecondsSinceTheStartInFront) {
    expect_match(line_with(Timestamps::relative), R"(   0\.\d{3}  hello\n)");
}

TEST(EventLinesTest, EachLineOfTextHasItsOwnTime) {
    std::ostringstream stream;
    StandardOutput out([] {}, stream);
    EventLines lines(out, EventFormat::text, ColorChoice::never);
    const auto write = [&] {
        stream.str("");
        lines.write_text([](std::string& line) { line += "hello"; });
        return stream.str();
    };
    const std::string first = write();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    const std::string second = write();
    expect_match(second, R"(   0\.\d{3}  hello\n)");
    EXPECT_LT(first, second);
}

TEST(EventLinesTest, TextCanHaveTheLocalTimeInFront) {
    setenv("TZ", "XYZ-05:30", 1);
    tzset();
    const std::string line = line_with(Timestamps::wall);
    unsetenv("TZ");
    tzset();
    expect_match(line, R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}\+05:30  hello\n)");
}

TEST(EventLinesTest, TextCanBeWithoutTime) {
    EXPECT_EQ(line_with(Timestamps::none), "hello\n");
}

TEST(EventLinesTest, JsonCountsFromTheSharedStart) {
    const StartInEnvironment start(microseconds_ago(std::chrono::seconds(5)));
    std::ostringstream stream;
    StandardOutput out([] {}, stream);
    EventLines lines(out, EventFormat::json, ColorChoice::never, Timestamps::none);
    lines.write_json("ready", Json::object());
    lines.write_json("log", {{"level", 4}});
    lines.write_json("log", [](std::string& line) { line += R"("level":4)"; });
    expect_match(stream.str(), R"(\{"event":"ready","time":5\.\d+\}\n)"
                               R"((\{"event":"log","time":5\.\d+,"level":4\}\n){2})");
}

}  // namespace
}  // namespace common
