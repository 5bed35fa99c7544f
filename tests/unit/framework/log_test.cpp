#include "fenwa/log.hpp"

#include <gtest/gtest.h>

#include <iomanip>

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
    EXPECT_EQ(log.take(), (Lines{"4 Owner of 'a.b' is 5 0.51"}));
}

TEST_F(LogTest, KeepsEachLevel) {
    for (const int level : {1, 2, 4, 0, -1})
        ilog(level) << "text";
    EXPECT_EQ(log.take(), (Lines{"1 text", "2 text", "4 text", "0 text", "-1 text"}));
}

TEST_F(LogTest, LogsAnEmptyLineToo) {
    { const ilog nothing(2); }
    EXPECT_EQ(log.take(), (Lines{"2 "}));
}

TEST_F(LogTest, EndsTheLineAtANullText) {
    const char* const nothing = nullptr;
    ilog(1) << "before: " << nothing << "never written" << 5;
    EXPECT_EQ(log.take(), (Lines{"1 before: "}));
}

TEST_F(LogTest, TakesManipulators) {
    ilog(1) << "ends here" << std::endl;
    ilog(1) << std::hex << 255 << std::setw(4) << 7;
    EXPECT_EQ(log.take(), (Lines{"1 ends here\n", "1 ff   7"}));
}

TEST_F(LogTest, DoesNotInterpretPercentSigns) {
    ilog(2) << "100 %s %d %n %";
    EXPECT_EQ(log.take(), (Lines{"2 100 %s %d %n %"}));
}

TEST_F(LogTest, FormatsLikePrintf) {
    logger(2, "%s is %d of %.2f%%", "this", 7, 0.5);
    logger(1, "%s", std::string(100000, 'x').c_str());
    EXPECT_EQ(log.take(), (Lines{"2 this is 7 of 0.50%", "1 " + std::string(100000, 'x')}));
}

TEST(LogWithoutSinkTest, WritesLevelAndLineToStderr) {
    testing::internal::CaptureStderr();
    ilog(1) << "to stderr";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "<1>to stderr\n");
}

}  // namespace
