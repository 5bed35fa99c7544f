#include "src/frame/failure_line.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "tests/support/bus_messages.hpp"
#include "tests/support/log_recorder.hpp"
#include "tests/support/sdbus_interception.hpp"

namespace {

using blocks::BodyTexts;
using blocks::Level;
using Lines = std::vector<std::string>;

class FailureLineTest : public testing::Test {
  protected:
    support::LogRecorder log;
    support::Messages messages;
};

/// An exception that has nothing to say.
class SilentError : public std::exception {
  public:
    [[nodiscard]] const char* what() const noexcept override { return nullptr; }
};

TEST_F(FailureLineTest, NamesTheErrnoOfAFailedFunction) {
    blocks::log_errno(Level::error, "Failed to call: ", -ENOTCONN);
    blocks::log_errno(Level::warning, "Failed to add: ", -EINVAL);
    EXPECT_EQ(log.take(), (Lines{"1 Failed to call: Transport endpoint is not connected",
                                 "2 Failed to add: Invalid argument"}));
}

TEST_F(FailureLineTest, TakesTheTextOfAnErrorReplyFromItsBody) {
    const auto reply = messages.error_with_body("com.example.Error", "ss", "the body", "surplus");
    EXPECT_EQ(blocks::log_error_message("Error when asking: ", reply), 1);
    EXPECT_EQ(log.take(), (Lines{"1 Error when asking: the body"}));
}

TEST_F(FailureLineTest, SaysUnknownWhenTheErrorReplyHoldsNoString) {
    EXPECT_EQ(blocks::log_error_message("A: ", messages.error("com.example.Error", nullptr)),
              -ENXIO);
    EXPECT_EQ(blocks::log_error_message("B: ", messages.error_with_body("com.example.E", "i", 5)),
              -ENXIO);
    EXPECT_EQ(blocks::log_error_message("C: ", nullptr), -EINVAL);
    support::Interception bus;
    bus.make_up(support::MessageFunction::read, {-EPERM});
    EXPECT_EQ(blocks::log_error_message("D: ", messages.error("com.example.Error", "no")), -EPERM);
    EXPECT_EQ(log.take(), (Lines{"1 A: unknown", "1 B: unknown", "1 C: unknown", "1 D: unknown"}));
}

TEST_F(FailureLineTest, EndsWithThePrefixWhenTheReadOfTheTextComesToNothing) {
    support::Interception bus;
    bus.make_up(support::MessageFunction::read, {0});
    EXPECT_EQ(blocks::log_error_message("A: ", messages.error("com.example.Error", "no")), 0);
    EXPECT_EQ(log.take(), (Lines{"1 A: "}));
}

TEST_F(FailureLineTest, KeepsAnEmptyErrorText) {
    EXPECT_EQ(blocks::log_error_message("A: ", messages.error("com.example.Error", "")), 1);
    EXPECT_EQ(log.take(), (Lines{"1 A: "}));
}

TEST_F(FailureLineTest, TakesTheTextOfAnException) {
    blocks::log_exception(Level::information, "Could not show: ", std::runtime_error("gone"));
    EXPECT_EQ(log.take(), (Lines{"4 Could not show: gone"}));
}

TEST_F(FailureLineTest, EndsWithThePrefixWhenAnExceptionHasNoText) {
    blocks::log_exception(Level::warning, "Could not show: ", SilentError());
    EXPECT_EQ(log.take(), (Lines{"2 Could not show: "}));
}

TEST_F(FailureLineTest, TakesTheMessageOfASetErrorArgument) {
    const sd_bus_error error =
        SD_BUS_ERROR_MAKE_CONST("org.freedesktop.DBus.Error.AccessDenied", "not you");
    EXPECT_EQ(blocks::log_error_argument(Level::warning, "Error while receiving: ", error),
              -EACCES);
    EXPECT_EQ(log.take(), (Lines{"2 Error while receiving: not you"}));
}

TEST_F(FailureLineTest, EndsWithThePrefixWhenTheErrorArgumentHasNoMessage) {
    const sd_bus_error error =
        SD_BUS_ERROR_MAKE_CONST("org.freedesktop.DBus.Error.NoReply", nullptr);
    EXPECT_EQ(blocks::log_error_argument(Level::error, "Error while receiving: ", error),
              -ETIMEDOUT);
    EXPECT_EQ(log.take(), (Lines{"1 Error while receiving: "}));
}

TEST_F(FailureLineTest, DoesNotInterpretPercentSigns) {
    blocks::log_exception(Level::error, "100 %s of ", std::runtime_error("%d %n %%"));
    EXPECT_EQ(log.take(), (Lines{"1 100 %s of %d %n %%"}));
}

class ReadBodyTest : public FailureLineTest {
  protected:
    const BodyTexts texts{Level::error, "Error: ", "Failed to parse: "};
    sd_bus_error empty = SD_BUS_ERROR_NULL;
};

TEST_F(ReadBodyTest, ReadsEveryValueAndLogsNothing) {
    std::int32_t id = 0;
    double reading = 0;
    EXPECT_EQ(blocks::read_body(messages.reply("id", 7, 0.5), &empty, texts, "id", &id, &reading),
              1);
    EXPECT_EQ(id, 7);
    EXPECT_EQ(reading, 0.5);
}

TEST_F(ReadBodyTest, WarnsOfABodyThatCannotBeRead) {
    std::int32_t id = 0;
    EXPECT_EQ(blocks::read_body(messages.reply("s", "seven"), &empty, texts, "i", &id), -ENXIO);
    EXPECT_EQ(log.take(), (Lines{"2 Failed to parse: No such device or address"}));
}

TEST_F(ReadBodyTest, DoesNotReadBehindASetErrorArgument) {
    const sd_bus_error error =
        SD_BUS_ERROR_MAKE_CONST("org.freedesktop.DBus.Error.Failed", "no luck");
    std::int32_t id = -1;
    EXPECT_EQ(blocks::read_body(messages.reply("i", 7), &error, texts, "i", &id), -EACCES);
    EXPECT_EQ(id, -1);
    EXPECT_EQ(log.take(), (Lines{"1 Error: no luck"}));
}

TEST_F(ReadBodyTest, TakesAnErrorArgumentWithoutANameForEmpty) {
    const sd_bus_error nameless = SD_BUS_ERROR_MAKE_CONST(nullptr, "a message alone");
    std::int32_t id = -1;
    EXPECT_EQ(blocks::read_body(messages.reply("i", 7), &nameless, texts, "i", &id), 1);
    EXPECT_EQ(id, 7);
}

TEST_F(ReadBodyTest, AcceptsAnErrorReplyWhoseBodyHasTheRightSignature) {
    std::int32_t id = -1;
    EXPECT_EQ(blocks::read_body(messages.error_with_body("com.example.E", "i", 3), &empty, texts,
                                "i", &id),
              1);
    EXPECT_EQ(id, 3);
}

}  // namespace
