#include <cerrno>
#include <functional>
#include <ostream>

#include "tests/unit/temperature/temperature_reader_fixture.hpp"

namespace {

using namespace reader_test;

TEST_F(TemperatureReaderTest, TakesARefusedMatchForAnInstalledOne) {
    make();
    appear();
    EXPECT_EQ(run(), (Journal{change_match}));
    EXPECT_EQ(
        bus.last().install(messages.error("org.freedesktop.DBus.Error.LimitsExceeded", "too many")),
        0);
    EXPECT_TRUE(reader->woken());
    look_up();
}

TEST_F(TemperatureReaderTest, LogsASetErrorArgumentOfTheInstallation) {
    make();
    appear();
    EXPECT_EQ(run(), (Journal{change_match}));
    EXPECT_EQ(bus.last().install(messages.reply(""), denied), 0);
    EXPECT_EQ(bus.last().install(messages.reply(""), silent), 0);
    EXPECT_EQ(log.take(), (Lines{"1 Error when adding match for TemperatureSignal: not you",
                                 "1 Error when adding match for TemperatureSignal: "}));
    EXPECT_TRUE(reader->woken());
    EXPECT_TRUE(match_pending());
    EXPECT_EQ(run(), Journal{}) << "the match does not count as installed";
}

TEST_F(TemperatureReaderTest, ReadsAChangeUnlessTheResultIsNegative) {
    make();
    register_reader();
    fetch(20.0);
    bus.change_results(support::MessageFunction::read, {-EPERM, 0});
    EXPECT_EQ(bus.sending(3).deliver(change(12, 30.0)), -EPERM);
    EXPECT_EQ(log.take(), (Lines{"2 Failed to setup temperature signal: Operation not permitted"}));
    EXPECT_FALSE(reader->woken());
    notify(40.0);
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), 40.0);
    (void)debug_values();
}

/// One of the three method replies of a reader.
struct ReplyCase {
    const char* name;
    std::size_t number;  ///< of the call among the block's sendings
    std::string error_prefix;
    std::string parse_prefix;
    std::function<support::Message(support::Messages&)> accepted_error;
};

void PrintTo(const ReplyCase& reply, std::ostream* out) {
    *out << reply.name;
}

/// Leaves each method call of a reader unanswered, for the test to answer.
class TemperatureReaderReplyTest : public TemperatureReaderTest,
                                   public testing::WithParamInterface<ReplyCase> {
  protected:
    void SetUp() override {
        make();
        appear();
        install();
        if (GetParam().number >= 5)
            look_up();
        if (GetParam().number >= 6)
            enlist();
        EXPECT_EQ(run().size(), 1U);
        ASSERT_EQ(bus.count(), GetParam().number);
    }

    /// The reader must not take another step until it is stopped.
    void expect_stall() {
        EXPECT_FALSE(reader->woken());
        EXPECT_TRUE(call_pending());
        for (int again = 0; again < 3; ++again)
            EXPECT_EQ(run(), Journal{});
        EXPECT_EQ(published(), std::nullopt);
    }
};

TEST_P(TemperatureReaderReplyTest, StallsAfterAnUnreadableReply) {
    EXPECT_EQ(bus.last().deliver(messages.reply("as", 0U)), -ENXIO);
    EXPECT_EQ(log.take(), (Lines{"2 " + GetParam().parse_prefix + "No such device or address"}));
    expect_stall();
}

TEST_P(TemperatureReaderReplyTest, StallsAfterAnEmptyReply) {
    EXPECT_EQ(bus.last().deliver(messages.reply("")), -ENXIO);
    EXPECT_EQ(log.take(), (Lines{"2 " + GetParam().parse_prefix + "No such device or address"}));
    expect_stall();
}

TEST_P(TemperatureReaderReplyTest, StallsAfterAnyNegativeResult) {
    bus.change_results(support::MessageFunction::read, {-EPERM});
    EXPECT_EQ(bus.last().deliver(GetParam().accepted_error(messages)), -EPERM);
    EXPECT_EQ(log.take(), (Lines{"2 " + GetParam().parse_prefix + "Operation not permitted"}));
    expect_stall();
}

TEST_P(TemperatureReaderReplyTest, TakesAResultOfZeroForSuccess) {
    bus.change_results(support::MessageFunction::read, {0});
    EXPECT_EQ(bus.last().deliver(GetParam().accepted_error(messages)), 0);
    EXPECT_TRUE(reader->woken());
    EXPECT_FALSE(call_pending());
    EXPECT_EQ(bus.take_journal().size(), 1U);
}

TEST_P(TemperatureReaderReplyTest, TakesAnErrorReplyForAnUnreadableOne) {
    EXPECT_EQ(bus.last().deliver(messages.error("com.example.Error", "no such sensor")), -ENXIO);
    EXPECT_EQ(bus.last().deliver(messages.error("com.example.Error", nullptr)), -ENXIO);
    const std::string line = "2 " + GetParam().parse_prefix + "No such device or address";
    EXPECT_EQ(log.take(), (Lines{line, line}));
    expect_stall();
}

TEST_P(TemperatureReaderReplyTest, AcceptsAnErrorReplyWhoseBodyHasTheRightSignature) {
    EXPECT_EQ(bus.last().deliver(GetParam().accepted_error(messages)), 0);
    EXPECT_TRUE(reader->woken());
    EXPECT_FALSE(call_pending());
    EXPECT_EQ(bus.take_journal().size(), 1U);
}

TEST_P(TemperatureReaderReplyTest, LogsASetErrorArgumentAndStalls) {
    EXPECT_EQ(bus.last().deliver(messages.reply("i", 1), denied), -EACCES);
    EXPECT_EQ(log.take(), (Lines{GetParam().error_prefix + "not you"}));
    expect_stall();
}

TEST_P(TemperatureReaderReplyTest, EndsTheLineWithThePrefixWhenTheErrorArgumentHasNoText) {
    EXPECT_EQ(bus.last().deliver(messages.reply("d", 1.0), silent), -ETIMEDOUT);
    EXPECT_EQ(log.take(), (Lines{GetParam().error_prefix}));
    expect_stall();
}

TEST_P(TemperatureReaderReplyTest, IsDroppedWithTheSlotWhenTheReaderStops) {
    (*reader)->stop();
    EXPECT_FALSE(call_pending());
    EXPECT_TRUE(bus.last().released);
}

const ReplyCase reply_cases[] = {
    {"GetTemperatureIdFromName", 4,
     "1 Error when calling GetTemperatureIdFromName: ", "Failed to parse sensor id: ",
     [](support::Messages& messages) {
         return messages.error_with_body("com.example.Error", "i", 3);
     }},
    {"RegisterForTemperatureChangeSignal", 5,
     "2 Error while receiving DBus signal: ", "Failed to setup temperature change singal: ",
     [](support::Messages& messages) {
         return messages.error_with_body("com.example.Error", "i", 12);
     }},
    {"GetTemperature", 6, "2 Error while receiving DBus signal: ", "Failed to parse sensor id: ",
     [](support::Messages& messages) {
         return messages.error_with_body("com.example.Error", "d", 21.5);
     }},
};

std::string reply_name(const testing::TestParamInfo<ReplyCase>& reply) {
    return reply.param.name;
}

INSTANTIATE_TEST_SUITE_P(Calls, TemperatureReaderReplyTest, testing::ValuesIn(reply_cases),
                         reply_name);

class TemperatureChangeTest : public TemperatureReaderTest {
  protected:
    void SetUp() override {
        make();
        register_reader();
        fetch(20.0);
        EXPECT_EQ(run(), Journal{});
        EXPECT_EQ(published(), 20.0);
        EXPECT_EQ(debug_values().size(), 1U);
    }
};

TEST_F(TemperatureChangeTest, TakesReadingsOfItsOwnRegistration) {
    EXPECT_EQ(bus.sending(3).deliver(change(12, 21.5)), 0);
    EXPECT_TRUE(reader->woken());
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), 21.5);
    EXPECT_EQ(debug_values(),
              (Values{"temperature_reader_sensor_id3_current_temperature = #2 21.5"}));
}

TEST_F(TemperatureChangeTest, IgnoresReadingsOfOtherRegistrations) {
    for (const std::int32_t other : {11, 13, 3, -1, 0, -12})
        EXPECT_EQ(bus.sending(3).deliver(change(other, 99.0)), 0);
    EXPECT_FALSE(reader->woken());
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), std::nullopt);
}

TEST_F(TemperatureChangeTest, WarnsOfAnUnreadableSignalAndTakesNothingFromIt) {
    const auto partly = messages.signal("/a", "a.b", "TemperatureChangeSignal", "i", 12);
    EXPECT_EQ(bus.sending(3).deliver(partly), -ENXIO);
    const auto wrong = messages.signal("/a", "a.b", "TemperatureChangeSignal", "di", 1.0, 12);
    EXPECT_EQ(bus.sending(3).deliver(wrong), -ENXIO);
    const std::string line = "2 Failed to setup temperature signal: No such device or address";
    EXPECT_EQ(log.take(), (Lines{line, line}));
    EXPECT_FALSE(reader->woken());
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), std::nullopt);
}

TEST_F(TemperatureChangeTest, LogsASetErrorArgument) {
    EXPECT_EQ(bus.sending(3).deliver(change(12, 99.0), denied), -EACCES);
    EXPECT_EQ(bus.sending(3).deliver(change(12, 99.0), silent), -ETIMEDOUT);
    EXPECT_EQ(log.take(), (Lines{"2 Error while receiving DBus signal: not you",
                                 "2 Error while receiving DBus signal: "}));
    EXPECT_FALSE(reader->woken());
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), std::nullopt);
}

TEST_F(TemperatureChangeTest, DoesNotTouchAPendingCall) {
    restart_service();
    EXPECT_EQ(run(), (Journal{lookup}));
    EXPECT_EQ(bus.sending(3).deliver(change(-1, 22.0)), 0);
    EXPECT_TRUE(call_pending());
    EXPECT_TRUE(reader->woken()) << "until it is registered again, -1 is the reader's id";
}

}  // namespace
