#include <ostream>

#include "tests/unit/power/power_consumer_fixture.hpp"

namespace {

using namespace consumer_test;

using support::denied;
constexpr sd_bus_error silent =
    SD_BUS_ERROR_MAKE_CONST("org.freedesktop.DBus.Error.NoReply", nullptr);
constexpr sd_bus_error nameless = SD_BUS_ERROR_MAKE_CONST(nullptr, "a message alone");

/// One of the two calls of the controller.
struct ReplyCase {
    const char* name;
    std::string call;
    std::string release;
    std::string error_prefix;
    std::atomic<bool>& (*flag)(PowerConsumer&);
};

void PrintTo(const ReplyCase& reply, std::ostream* out) {
    *out << reply.name;
}

/// Leaves each call of the controller unanswered, for the test to answer.
class PowerConsumerReplyTest : public PowerConsumerTest,
                               public testing::WithParamInterface<ReplyCase> {
  protected:
    void SetUp() override {
        make();
        begin();
        if (GetParam().call == request) {
            answer();
            EXPECT_EQ(run_woken(), (Journal{request}));
        }
        (void)published();
        EXPECT_FALSE(answered());
    }

    bool answered() { return GetParam().flag(**consumer); }

    /// The slot is given up and the block woken, whatever the answer was.
    void expect_end_of_call() {
        EXPECT_EQ(bus.take_journal(), (Journal{GetParam().release}));
        EXPECT_FALSE(call_pending());
        EXPECT_TRUE(consumer->woken());
    }
};

TEST_P(PowerConsumerReplyTest, CountsWhateverItHolds) {
    EXPECT_EQ(bus.last().deliver(messages.reply("si", "surplus", 5)), 0);
    EXPECT_TRUE(answered());
    expect_end_of_call();
}

TEST_P(PowerConsumerReplyTest, CountsAlsoWhenItIsAnError) {
    EXPECT_EQ(bus.last().deliver(
                  messages.error("org.freedesktop.DBus.Error.ServiceUnknown", "nobody there")),
              0);
    EXPECT_TRUE(answered());
    expect_end_of_call();
}

TEST_P(PowerConsumerReplyTest, CountsWhenTheErrorArgumentHasNoName) {
    EXPECT_EQ(bus.last().deliver(messages.reply(""), nameless), 0);
    EXPECT_TRUE(answered());
    expect_end_of_call();
}

TEST_P(PowerConsumerReplyTest, DoesNotCountWithASetErrorArgument) {
    EXPECT_EQ(bus.last().deliver(messages.reply(""), denied), 0);
    EXPECT_EQ(log.take(), (Lines{"2 " + GetParam().error_prefix + "not you"}));
    EXPECT_FALSE(answered());
    EXPECT_EQ(bus.take_journal(), (Journal{GetParam().release}));
    EXPECT_EQ(run_woken(), (Journal{GetParam().call})) << "the call is made again";
}

TEST_P(PowerConsumerReplyTest, EndsTheLineWithThePrefixWhenTheErrorArgumentHasNoText) {
    EXPECT_EQ(bus.last().deliver(messages.reply(""), silent), 0);
    EXPECT_EQ(log.take(), (Lines{"2 " + GetParam().error_prefix}));
    EXPECT_FALSE(answered());
    expect_end_of_call();
}

TEST_P(PowerConsumerReplyTest, CountsAfterALossOfTheControllerThatCameFirst) {
    lose_controller();
    EXPECT_TRUE(call_pending()) << "the pending call is left alone";
    EXPECT_EQ(run_woken(), Journal{});
    EXPECT_EQ(bus.last().deliver(messages.error("org.freedesktop.DBus.Error.NoReply", "gone")), 0);
    EXPECT_TRUE(answered());
    expect_end_of_call();
}

const ReplyCase reply_cases[] = {
    {"Register", registration, "release #2 Register",
     "Error when register power consumer: ", &LayoutProbe::registered},
    {"RequestPower", request, "release #3 RequestPower",
     "Error when requesting power: ", &LayoutProbe::power_requested},
};

INSTANTIATE_TEST_SUITE_P(Calls, PowerConsumerReplyTest, testing::ValuesIn(reply_cases),
                         [](const auto& of) { return std::string(of.param.name); });

}  // namespace
