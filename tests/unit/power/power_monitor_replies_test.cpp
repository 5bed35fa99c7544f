#include <cerrno>

#include "tests/unit/power/power_monitor_fixture.hpp"

namespace {

using namespace monitor_test;

using support::denied;
constexpr sd_bus_error silent =
    SD_BUS_ERROR_MAKE_CONST("org.freedesktop.DBus.Error.NoReply", nullptr);
constexpr sd_bus_error nameless = SD_BUS_ERROR_MAKE_CONST(nullptr, "a message alone");

TEST_F(PowerMonitorTest, TakesARefusedMatchForAnInstalledOne) {
    make();
    EXPECT_EQ(run(), (Journal{change_match}));
    install(bus.last(), messages.error("org.freedesktop.DBus.Error.LimitsExceeded", "too many"));
    EXPECT_TRUE(monitor->woken());
    EXPECT_EQ(run(), (Journal{query}));
}

TEST_F(PowerMonitorTest, TakesAnErrorArgumentWithoutANameForEmpty) {
    make();
    EXPECT_EQ(run(), (Journal{change_match}));
    install(bus.last(), messages.reply(""), nameless);
    EXPECT_EQ(run(), (Journal{query}));
    deliver(bus.last(), messages.reply("v", "d", 7.0), nameless);
    deliver(bus.sending(1), change(1, "PowerReceived", "d", 8.0), nameless);
    EXPECT_EQ(received(), 8.0);
    EXPECT_EQ(run(), Journal{});
}

TEST_F(PowerMonitorTest, InstallsTheMatchAgainAfterASetErrorArgument) {
    make();
    EXPECT_EQ(run(), (Journal{change_match}));
    install(bus.last(), messages.reply(""), denied);
    EXPECT_EQ(log.take(), (Lines{"1 Failed to add match for PowerReceived: not you"}));
    EXPECT_EQ(failures(), 1);
    EXPECT_TRUE(match_held());
    EXPECT_TRUE(monitor->woken());
    EXPECT_EQ(run(), (Journal{"release #1 match", change_match}));
    install(bus.last(), messages.reply(""), silent);
    EXPECT_EQ(log.take(), (Lines{"1 Failed to add match for PowerReceived: "}));
    EXPECT_EQ(failures(), 2);
    EXPECT_EQ(run(), (Journal{"release #2 match", change_match}));
}

TEST_F(PowerMonitorTest, TakesTheValueThatIsAnswered) {
    make(5.0);
    ask();
    deliver(bus.last(), messages.reply("v", "d", 4.0));
    EXPECT_EQ(received(), 4.0);
    EXPECT_TRUE(monitor->woken());
    EXPECT_EQ(outcome(), false);
    EXPECT_EQ(bus.take_journal(), Journal{});
}

TEST_F(PowerMonitorTest, TakesTheAnswerWhateverItsValueIs) {
    for (const double power : {0.0, -1.0, infinity, not_a_number}) {
        make(5.0);
        ask();
        deliver(bus.last(), messages.reply("v", "d", power));
        EXPECT_EQ(run(), Journal{}) << "a value is a value: " << power;
        monitor.reset();
        (void)bus.take_journal();
    }
}

TEST_F(PowerMonitorTest, AsksAgainAfterASetErrorArgument) {
    make(5.0);
    ask();
    deliver(bus.last(), messages.reply("v", "d", 4.0), denied);
    EXPECT_EQ(log.take(), (Lines{"1 Failed to get PowerReceived: not you"}));
    EXPECT_EQ(failures(), 1);
    EXPECT_EQ(received(), 5.0) << "the reply is not read";
    EXPECT_TRUE(monitor->woken());
    EXPECT_EQ(run(), (Journal{"release #2 Get", query}));
    deliver(bus.last(), messages.reply(""), silent);
    EXPECT_EQ(log.take(), (Lines{"1 Failed to get PowerReceived: "}));
    EXPECT_EQ(failures(), 2);
    EXPECT_EQ(run(), (Journal{"release #3 Get", query}));
}

TEST_F(PowerMonitorTest, AsksAgainAfterAReplyThatCannotBeRead) {
    make(5.0);
    ask();
    int failed = 0;
    const auto fail = [&](const support::Message& reply) {
        deliver(bus.last(), reply);
        EXPECT_EQ(log.take(),
                  (Lines{"1 Failed to read value of PowerReceived: No such device or address"}));
        EXPECT_EQ(failures(), ++failed);
        EXPECT_TRUE(monitor->woken());
        const Journal sent = run();
        EXPECT_EQ(sent.size(), 2U);
        EXPECT_EQ(sent.back(), query);
    };
    fail(messages.reply(""));
    fail(messages.reply("d", 4.0));
    fail(messages.reply("v", "i", 4));
    fail(messages.reply("v", "s", "much"));
    fail(messages.error("org.freedesktop.DBus.Error.ServiceUnknown", "nobody there"));
    fail(messages.error("org.freedesktop.DBus.Error.NoReply", nullptr));
    EXPECT_EQ(received(), 5.0);
}

TEST_F(PowerMonitorTest, AcceptsAnErrorReplyWhoseBodyHasTheRightSignature) {
    make();
    ask();
    deliver(bus.last(), messages.error_with_body("com.example.Error", "v", "d", 7.0));
    EXPECT_EQ(received(), 7.0);
    EXPECT_EQ(run(), Journal{});
}

TEST_F(PowerMonitorTest, NamesNoErrorWhenTheReadComesToNothing) {
    make(5.0);
    ask();
    bus.make_up(support::MessageFunction::read, {0});
    deliver(bus.last(), messages.reply("v", "d", 4.0));
    EXPECT_EQ(log.take(), (Lines{"1 Failed to read value of PowerReceived: Success"}));
    EXPECT_EQ(failures(), 1);
    EXPECT_EQ(received(), 5.0);
    EXPECT_TRUE(monitor->woken());
    EXPECT_EQ(run(), (Journal{"release #2 Get", query}));
}

TEST_F(PowerMonitorTest, TakesAReadThatLeavesTheValueAloneForZeroPower) {
    make(5.0);
    ask();
    bus.make_up(support::MessageFunction::read, {1});
    deliver(bus.last(), messages.reply("v", "d", 4.0));
    EXPECT_EQ(received(), 0.0);
    EXPECT_TRUE(monitor->woken());
}

TEST_F(PowerMonitorTest, StopsAskingByItselfAfterElevenFailures) {
    make();
    ask();
    for (int failure = 1; failure <= 10; ++failure) {
        deliver(bus.last(), messages.error("com.example.Error", nullptr));
        EXPECT_TRUE(monitor->woken()) << failure;
        EXPECT_EQ(run().back(), query);
    }
    deliver(bus.last(), messages.error("com.example.Error", nullptr));
    EXPECT_FALSE(monitor->woken());
    EXPECT_EQ(log.take().size(), 11U) << "each failure is logged";
    EXPECT_EQ(failures(), 11);

    // Whatever else wakes it makes it ask once more.
    deliver(bus.sending(1), change(0));
    EXPECT_TRUE(monitor->woken());
    EXPECT_EQ(run().back(), query);
    deliver(bus.last(), messages.reply(""), denied);
    EXPECT_FALSE(monitor->woken());
    EXPECT_EQ(log.take(), (Lines{"1 Failed to get PowerReceived: not you"}));
    EXPECT_EQ(failures(), 12);
    EXPECT_EQ(run().back(), query);
    deliver(bus.last(), messages.reply("v", "d", 7.0));
    EXPECT_TRUE(monitor->woken());
    EXPECT_EQ(failures(), 0);
}

TEST_F(PowerMonitorTest, StopsInstallingTheMatchByItselfAfterElevenFailures) {
    make();
    for (int failure = 1; failure <= 10; ++failure) {
        EXPECT_EQ(run().back(), change_match);
        install(bus.last(), messages.reply(""), denied);
        EXPECT_TRUE(monitor->woken()) << failure;
    }
    EXPECT_EQ(run().back(), change_match);
    install(bus.last(), messages.reply(""), denied);
    EXPECT_FALSE(monitor->woken());
    EXPECT_EQ(log.take().size(), 11U);
    EXPECT_EQ(failures(), 11);
    EXPECT_EQ(run().back(), change_match) << "another run tries again";
    install(bus.last(), messages.reply(""));
    EXPECT_TRUE(monitor->woken());
    EXPECT_EQ(failures(), 0);
}

TEST_F(PowerMonitorTest, StopsAfterElevenSetErrorArgumentsOfTheQuestion) {
    make();
    ask();
    for (int failure = 1; failure <= 11; ++failure) {
        deliver(bus.last(), messages.reply(""), denied);
        EXPECT_EQ(monitor->woken(), failure <= 10) << failure;
    }
    EXPECT_EQ(log.take().size(), 11U);
}

TEST_F(PowerMonitorTest, CountsTheFailuresOfTheMatchAndOfTheQuestionTogether) {
    make();
    ask();
    for (int failure = 1; failure <= 4; ++failure)
        install(bus.sending(1), messages.reply(""), denied);
    for (int failure = 5; failure <= 8; ++failure)
        deliver(bus.sending(2), messages.reply(""), denied);
    for (int failure = 9; failure <= 10; ++failure)
        deliver(bus.sending(2), messages.reply(""));
    EXPECT_TRUE(monitor->woken());
    install(bus.sending(1), messages.reply(""), denied);
    EXPECT_FALSE(monitor->woken());
    EXPECT_EQ(failures(), 11);
    EXPECT_EQ(log.take().size(), 11U);
}

TEST_F(PowerMonitorTest, CountsFromTheStartAfterASuccess) {
    make();
    ask();
    for (int failure = 1; failure <= 11; ++failure)
        deliver(bus.sending(2), messages.reply(""), denied);
    install(bus.sending(1), messages.reply(""));
    EXPECT_EQ(failures(), 0) << "an installed match is a success";
    EXPECT_TRUE(monitor->woken());
    for (int failure = 1; failure <= 10; ++failure) {
        deliver(bus.sending(2), messages.reply(""), denied);
        EXPECT_TRUE(monitor->woken());
    }
    EXPECT_EQ(log.take().size(), 21U);
}

TEST_F(PowerMonitorTest, HandsTheResultOfItsAnswersBack) {
    make();
    EXPECT_EQ(run(), (Journal{change_match}));
    bus.make_up(support::MessageFunction::reply_method_return, {3, 4, 5, 6, 7, 8});
    EXPECT_EQ(bus.last().install(messages.reply(""), denied), 3);
    EXPECT_EQ(bus.last().install(messages.reply("")), 4);
    EXPECT_EQ(bus.last().deliver(change(0)), 5);
    EXPECT_EQ(run().back(), query);
    EXPECT_EQ(bus.last().deliver(messages.reply(""), denied), 6);
    EXPECT_EQ(bus.last().deliver(messages.reply("")), 7);
    EXPECT_EQ(bus.last().deliver(messages.reply("v", "d", 1.0)), 8);
    EXPECT_EQ(log.take().size(), 3U);
    EXPECT_EQ(bus.take_journal(),
              (Journal{"answer null() = 6", "answer null() = 7", "answer null() = 8"}));
}

}  // namespace
