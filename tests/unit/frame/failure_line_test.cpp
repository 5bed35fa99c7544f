#include "src/frame/failure_line.hpp"

#include <stdexcept>

#include "tests/unit/block_fixture.hpp"

namespace {

using namespace support;  // NOLINT(google-build-using-namespace): a namespace of tests
using blocks::Level;

class FailureLineTest : public testing::Test {
  protected:
    /// The lines since the last time, and `returns(result)`.
    Lines logged(int result) {
        Lines lines = log.take();
        lines.push_back(returns(result));
        return lines;
    }

    LogRecorder log;
    Messages messages;
};

TEST_F(FailureLineTest, NamesTheErrnoOfAFailedFunction) {
    blocks::log_errno(Level::error, "Failed to call: ", -ENOTCONN);
    blocks::log_errno(Level::warning, "Failed to add: ", -EINVAL);
    EXPECT_EQ(log.take(), (Lines{"1 Failed to call: Transport endpoint is not connected",
                                 "2 Failed to add: Invalid argument"}));
}

TEST_F(FailureLineTest, TakesTheTextOfAnErrorReplyFromItsBody) {
    const auto log_error = [this](const Message& message) {
        return logged(blocks::log_error_message("A: ", message));
    };
    EXPECT_EQ(log_error(messages.error_with_body("com.example.E", "ss", "the body", "surplus")),
              (Lines{"1 A: the body", returns(1)}));
    EXPECT_EQ(log_error(messages.error("com.example.E", "")), (Lines{"1 A: ", returns(1)}));
    EXPECT_EQ(log_error(messages.error("com.example.E", nullptr)),
              (Lines{"1 A: unknown", returns(-ENXIO)}));
    EXPECT_EQ(log_error(messages.error_with_body("com.example.E", "i", 5)),
              (Lines{"1 A: unknown", returns(-ENXIO)}));
    EXPECT_EQ(log_error(Message(nullptr)), (Lines{"1 A: unknown", returns(-EINVAL)}));
    Interception bus;
    bus.make_up(MessageFunction::read, {-EPERM, 0});
    EXPECT_EQ(log_error(messages.error("com.example.E", "no")),
              (Lines{"1 A: unknown", returns(-EPERM)}));
    EXPECT_EQ(log_error(messages.error("com.example.E", "no")), (Lines{"1 A: ", returns(0)}))
        << "a read that comes to nothing";
}

/// An exception without a text.
class SilentError : public std::exception {
  public:
    [[nodiscard]] const char* what() const noexcept override { return nullptr; }
};

TEST_F(FailureLineTest, TakesTheTextOfAnException) {
    blocks::log_exception(Level::information, "Could not show: ", std::runtime_error("gone"));
    blocks::log_exception(Level::warning, "Could not show: ", SilentError());
    blocks::log_exception(Level::error, "100 %s of ", std::runtime_error("%d %n %%"));
    EXPECT_EQ(log.take(),
              (Lines{"4 Could not show: gone", "2 Could not show: ", "1 100 %s of %d %n %%"}));
}

TEST_F(FailureLineTest, TakesTheMessageOfASetErrorArgument) {
    EXPECT_EQ(logged(blocks::log_error_argument(Level::warning, "Error: ", denied)),
              (Lines{"2 Error: not you", returns(-EACCES)}));
    EXPECT_EQ(logged(blocks::log_error_argument(Level::error, "Error: ", silent)),
              (Lines{"1 Error: ", returns(-ETIMEDOUT)}));
}

/// Reads "i" from the body of messages.
class ReadBodyTest : public FailureLineTest {
  protected:
    Lines read(const Message& message, const sd_bus_error& error = SD_BUS_ERROR_NULL) {
        id = -1;
        return logged(blocks::read_body(message, &error, {Level::error, "Error: ", "Unreadable: "},
                                        "i", &id));
    }

    std::int32_t id = -1;
};

TEST_F(ReadBodyTest, ReadsWhateverHasTheRightSignatureAndLogsNothing) {
    for (const MakeMessage& make : {reply_of("i", 7), error_body_of("i", 7)}) {
        EXPECT_EQ(read(make(messages)), (Lines{returns(1)}));
        EXPECT_EQ(id, 7);
    }
    EXPECT_EQ(read(messages.reply("i", 8), nameless), (Lines{returns(1)}))
        << "an error argument without a name is an empty one";
    EXPECT_EQ(id, 8);
}

TEST_F(ReadBodyTest, WarnsOfABodyThatCannotBeRead) {
    EXPECT_EQ(read(messages.reply("s", "seven")),
              (Lines{"2 Unreadable: No such device or address", returns(-ENXIO)}));
}

TEST_F(ReadBodyTest, DoesNotReadTheBodyWhereTheErrorArgumentIsSet) {
    EXPECT_EQ(read(messages.reply("i", 7), denied), (Lines{"1 Error: not you", returns(-EACCES)}));
    EXPECT_EQ(id, -1);
}

}  // namespace
