#include "camera/service/event_log.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <regex>
#include <string>

namespace camera {
namespace {

/// A event log with its lines in a string.
class EventLogTest : public ::testing::Test {
  protected:
    ~EventLogTest() override {
        std::fclose(stream_);
        std::free(buffer_);
    }

    EventLog event_log(Format format, bool color = false) {
        return {stream_, format, color, nullptr};
    }

    /// What has been written; nothing needs to be flushed for it.
    [[nodiscard]] std::string written() const { return {buffer_, size_}; }

    char* buffer_ = nullptr;
    std::size_t size_ = 0;
    std::FILE* stream_ = open_memstream(&buffer_, &size_);
};

TEST_F(EventLogTest, AnEventInJsonIsOneLineThatBeginsWithEventAndTime) {
    event_log(Format::json).signal("temperature", "Changed", common::Json::parse(R"([3,"a\nb"])"));
    const std::string line = written();
    EXPECT_TRUE(line.starts_with(R"({"event":"signal","time":)")) << line;
    EXPECT_TRUE(
        line.ends_with(R"(,"service":"temperature","member":"Changed","arguments":[3,"a\nb"]})"
                       "\n"))
        << line;
    EXPECT_LT(common::Json::parse(line)["time"], 1.0);
}

TEST_F(EventLogTest, ALineOfTextHasTheTimeInSecondsInFront) {
    event_log(Format::text).say(1, "It gets warmer.");
    const std::string line = written();
    ASSERT_EQ(line.size(), std::string("   0.000  It gets warmer.\n").size()) << line;
    EXPECT_EQ(line.substr(0, 5), "   0.");
    EXPECT_EQ(line.substr(8), "  It gets warmer.\n");
}

TEST_F(EventLogTest, TellsOfAButtonAndOfTheEndOfAText) {
    EventLog text = event_log(Format::text);
    text.pressed("controls", "on1", "GET /a");
    text.text_expired("overlay", "Too\nhot");
    EventLog json = event_log(Format::json);
    json.pressed("controls", "on1", "GET /a");
    json.text_expired("overlay", "Too\nhot");
    const std::string lines = written();
    EXPECT_EQ(std::regex_replace(lines, std::regex(R"( +[0-9.]+  |"time":[0-9.e-]+,)"), ""),
              "controls: the button on1 is pressed: GET /a\n"
              R"(overlay: the text "Too\nhot" has had its time)"
              "\n"
              R"({"event":"press","service":"controls","button":"on1","request":"GET /a"})"
              "\n"
              R"({"event":"expired","service":"overlay","text":"Too\nhot"})"
              "\n");
}

TEST_F(EventLogTest, NoTextForgesALineOrReachesTheTerminal) {
    EventLog text = event_log(Format::text);
    text.error_reply("x\n\x1b[2J", "M\n", "r\r", "n\x7f", "m\u202e\xff");
    text.signal("overlay", "Changed", common::Json::array({"a\n\x7f\u009b"}));
    EXPECT_EQ(std::regex_replace(written(), std::regex(" +[0-9.]+  "), ""),
              "x\\n\\x1b[2J: refuses r\\r, M\\n: n\\u007f: m\\u202e\\xff\n"
              "overlay: signals Changed(\"a\\n\\u007f\\u009b\")\n");
}

TEST_F(EventLogTest, ColoursAreForTextOnly) {
    event_log(Format::text, true).exit(common::ExitCode::done);
    EXPECT_NE(written().find("\033["), std::string::npos);
    EXPECT_TRUE(written().ends_with("the end, with exit code 0\033[0m\n")) << written();
}

TEST_F(EventLogTest, JsonHasNoColours) {
    event_log(Format::json, true).exit(common::ExitCode::done);
    EXPECT_EQ(written().find('\033'), std::string::npos);
    EXPECT_TRUE(written().ends_with(",\"status\":0}\n")) << written();
}

TEST_F(EventLogTest, AStepIsToldInJsonOnly) {
    event_log(Format::text).step(2, "s.toml:3:1");
    EXPECT_EQ(written(), "");
    event_log(Format::json).step(2, "s.toml:3:1");
    EXPECT_TRUE(written().ends_with(",\"step\":2,\"where\":\"s.toml:3:1\"}\n")) << written();
}

TEST_F(EventLogTest, AnExpectationThatFailedNamesTheCallsThatCame) {
    event_log(Format::json)
        .expectation(3, "s.toml:9:1", "a call", false, common::Json::parse(R"x(["G()"])x"));
    EXPECT_TRUE(written().ends_with(R"x("expected":"a call","met":false,"calls":["G()"]})x"
                                    "\n"))
        << written();
}

TEST(EventLog, SaysOnceThatALineCannotBeWritten) {
    std::FILE* full = std::fopen("/dev/full", "w");
    ASSERT_NE(full, nullptr);
    int times = 0;
    int error = 0;
    EventLog event_log(full, Format::json, false, [&](int number) {
        ++times;
        error = number;
    });
    event_log.say(1, "a");
    event_log.say(2, "b");
    std::fclose(full);
    EXPECT_EQ(times, 1);
    EXPECT_EQ(error, ENOSPC);
}

}  // namespace
}  // namespace camera
