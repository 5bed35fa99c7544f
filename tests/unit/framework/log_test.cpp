#include "fenwa/log.hpp"

#include <gtest/gtest.h>

#include <iomanip>
#include <stdexcept>
#include <thread>

#include "tests/support/log_recorder.hpp"

namespace {

using Fenwa::ilog;
using Lines = std::vector<std::string>;

class LogTest : public testing::Test {
  protected:
    support::LogRecorder log;
};

TEST_F(LogTest, MakesOneLineOfOneIlogWhenItIsDestroyed) {
    {
        ilog line(4);
        line << "Owner of '" << std::string("a.b") << "' is " << 5 << ' ' << 0.5 << true;
        EXPECT_EQ(log.take(), Lines{});
    }
    { const ilog empty(2); }
    EXPECT_EQ(log.take(), (Lines{"4 Owner of 'a.b' is 5 0.51", "2 "}));
    for (const int level : {1, 2, 4, 0, -1})
        ilog(level) << "text";
    EXPECT_EQ(log.take(), (Lines{"1 text", "2 text", "4 text", "0 text", "-1 text"}));
}

TEST_F(LogTest, TakesTextsAsTheyAreAndEndsTheLineAtANullOne) {
    const char* const nothing = nullptr;
    ilog(1) << "before: " << nothing << "never written" << 5;
    ilog(1) << "ends here" << std::endl;
    ilog(1) << std::hex << 255 << std::setw(4) << 7;
    ilog(2) << "100 %s %d %n %";
    EXPECT_EQ(log.take(), (Lines{"1 before: ", "1 ends here\n", "1 ff   7", "2 100 %s %d %n %"}));
}

TEST_F(LogTest, FormatsLikePrintf) {
    logger(2, "%s is %d of %.2f%%", "this", 7, 0.5);
    logger(1, "%s", std::string(100000, 'x').c_str());
    EXPECT_EQ(log.take(), (Lines{"2 this is 7 of 0.50%", "1 " + std::string(100000, 'x')}));
}

/// Takes its sink away again, however the test ends.
class LogSinkTest : public testing::Test {
  protected:
    ~LogSinkTest() override { Fenwa::set_log_sink({}); }

    Lines lines;
};

TEST_F(LogSinkTest, MayLogItself) {
    Fenwa::set_log_sink([this](int level, const std::string& message) {
        lines.push_back("begin " + message);
        logger(level + 1, "sink took %s", message.c_str());
        lines.push_back("end " + message);
    });
    testing::internal::CaptureStderr();
    logger(1, "one");
    logger(3, "two");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "<2>sink took one\n<4>sink took two\n");
    EXPECT_EQ(lines, (Lines{"begin one", "end one", "begin two", "end two"}));
}

TEST_F(LogSinkTest, TakesLinesAgainAfterItThrew) {
    Fenwa::set_log_sink([this](int /*level*/, const std::string& message) {
        lines.push_back(message);
        if (message == "throw")
            throw std::runtime_error("thrown on purpose");
    });
    EXPECT_THROW(logger(1, "throw"), std::runtime_error);
    logger(1, "on");
    EXPECT_EQ(lines, (Lines{"throw", "on"}));
}

TEST_F(LogSinkTest, MayReplaceItself) {
    const std::string last = "the last line of the first sink";
    Fenwa::set_log_sink([this, last](int /*level*/, const std::string& message) {
        Fenwa::set_log_sink([this](int, const std::string& text) { lines.push_back(text); });
        lines.push_back(last + ": " + message);
    });
    logger(1, "one");
    logger(1, "two");
    EXPECT_EQ(lines, (Lines{"the last line of the first sink: one", "two"}));
}

TEST_F(LogSinkTest, IsCalledOnceAtATime) {
    Fenwa::set_log_sink(
        [this](int /*level*/, const std::string& message) { lines.push_back(message); });
    std::vector<std::thread> singers;
    for (int singer = 0; singer < 4; ++singer)
        singers.emplace_back([] {
            for (int line = 0; line < 500; ++line)
                logger(4, "%d", line);
        });
    for (std::thread& singer : singers)
        singer.join();
    EXPECT_EQ(lines.size(), 2000U);
}

TEST(LogWithoutSinkTest, WritesLevelAndLineToStderr) {
    testing::internal::CaptureStderr();
    ilog(1) << "to stderr";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "<1>to stderr\n");
}

}  // namespace
