#include "camera/service/event_log.hpp"
#include "tests/support/pattern.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

namespace camera {
namespace {

using common::EventFormat;

/// An event log with its lines in a string.
class EventLogTest : public ::testing::Test {
  protected:
    EventLog event_log(EventFormat format, common::ColorChoice color = common::ColorChoice::never) {
        return {out_, format, color};
    }
    [[nodiscard]] std::string written() const { return stream_.str(); }

    std::ostringstream stream_;
    common::StandardOutput out_{[] {}, stream_};
};

TEST_F(EventLogTest, ALineOfTextHasTheTimeInSecondsInFront) {
    event_log(EventFormat::text).say(1, "It gets warmer.");
    const std::string line = written();
    ASSERT_EQ(line.size(), std::string("   0.000  It gets warmer.\n").size()) << line;
    EXPECT_EQ(line.substr(0, 5), "   0.");
    EXPECT_EQ(line.substr(8), "  It gets warmer.\n");
}

TEST_F(EventLogTest, NoTextForgesALineOrReachesTheTerminal) {
    EventLog text = event_log(EventFormat::text);
    text.error_reply("x\n\x1b[2J", "M\n", "r\r", "n\x7f", "m\u202e\xff");
    text.signal("overlay", "Changed", common::Json::array({"a\n\x7f\u009b"}));
    EXPECT_EQ(test::Pattern(" +[0-9.]+  ").replace(written(), ""),
              "x\\n\\x1b[2J: refuses r\\r, M\\n: n\\u007f: m\\u202e\\xff\n"
              "overlay: signals Changed(\"a\\n\\u007f\\u009b\")\n");
}

TEST_F(EventLogTest, ColoursAreForTextOnly) {
    event_log(EventFormat::json, common::ColorChoice::always).exit(common::ExitCode::done);
    EXPECT_EQ(written().find('\033'), std::string::npos);
    EXPECT_TRUE(written().ends_with(",\"status\":0}\n")) << written();
    event_log(EventFormat::text, common::ColorChoice::always).exit(common::ExitCode::done);
    EXPECT_NE(written().find("\033["), std::string::npos);
    EXPECT_TRUE(written().ends_with("the end, with exit code 0\033[0m\n")) << written();
}

TEST(EventLog, SaysOnceThatALineCannotBeWritten) {
    std::ofstream full("/dev/full");
    int times = 0;
    common::StandardOutput out([&times] { ++times; }, full);
    EventLog event_log(out, EventFormat::json, common::ColorChoice::never);
    event_log.say(1, "a");
    event_log.say(2, "b");
    EXPECT_EQ(times, 1);
    EXPECT_EQ(out.error(), ENOSPC);
}

}  // namespace
}  // namespace camera
