#include <cerrno>

#include "tests/unit/temperature/temperature_monitor_fixture.hpp"

namespace {

using namespace monitor_test;

TEST_F(TemperatureMonitorTest, TakesARefusedMatchForAnInstalledOne) {
    make();
    for (const std::string& match : {owner_match, signal_match}) {
        EXPECT_EQ(run(), (Journal{match}));
        EXPECT_EQ(bus.last().install(
                      messages.error("org.freedesktop.DBus.Error.LimitsExceeded", "too many")),
                  0);
        EXPECT_TRUE(monitor->woken());
    }
    register_limits();
}

TEST_F(TemperatureMonitorTest, LogsASetErrorArgumentOfTheOwnerMatchAndWaits) {
    make();
    EXPECT_EQ(run(), (Journal{owner_match}));
    EXPECT_EQ(bus.last().install(messages.reply(""), denied), -EACCES);
    EXPECT_TRUE(monitor->woken());
    EXPECT_EQ(bus.last().install(messages.reply(""), silent), -ETIMEDOUT);
    EXPECT_TRUE(monitor->woken());
    EXPECT_EQ(log.take(), (Lines{"1 Error when adding match for NameOwnerChanged: not you",
                                 "1 Error when adding match for NameOwnerChanged: "}));
    EXPECT_EQ(run(), Journal{}) << "the match is held and does not count as installed";
    EXPECT_TRUE(owner_match_held());
}

TEST_F(TemperatureMonitorTest, LogsASetErrorArgumentOfTheSignalMatchAndWaits) {
    make();
    install_owner_match();
    EXPECT_EQ(run(), (Journal{signal_match}));
    EXPECT_EQ(bus.last().install(messages.reply(""), denied), -EACCES);
    EXPECT_TRUE(monitor->woken());
    EXPECT_EQ(bus.last().install(messages.reply(""), silent), -ETIMEDOUT);
    EXPECT_TRUE(monitor->woken());
    EXPECT_EQ(log.take(), (Lines{"1 Error when adding match for TemperatureSignal: not you",
                                 "1 Error when adding match for TemperatureSignal: "}));
    EXPECT_EQ(run(), Journal{}) << "the match is held and does not count as installed";
    EXPECT_TRUE(signal_match_held());
}

/// Leaves the registration of each limit unanswered, for the test to answer.
class RegistrationReplyTest : public TemperatureMonitorTest,
                              public testing::WithParamInterface<std::size_t> {
  protected:
    void SetUp() override {
        make();
        install_matches();
        for (std::size_t limit = 0; limit < GetParam(); ++limit) {
            EXPECT_EQ(run().size(), 1U);
            answer_registration(usual_ids.at(limit));
        }
        EXPECT_EQ(run(), (Journal{default_registrations.at(GetParam())}));
        number = bus.count();
    }

    /// The monitor must not take another step until it is stopped, whatever happens to it.
    void expect_stall() {
        EXPECT_FALSE(monitor->woken());
        EXPECT_TRUE(call_pending());
        EXPECT_EQ(run(), Journal{});
        cross(low_off);
        EXPECT_EQ(run(), Journal{});
        lose_controller();
        EXPECT_EQ(run(), Journal{});
        EXPECT_EQ(published(), std::nullopt) << "the last verdict is kept";
        EXPECT_TRUE(verdict());
        (*monitor)->stop();
        EXPECT_TRUE(bus.sending(number).released);
        (void)bus.take_journal();
    }

    const std::string unreadable =
        "2 Failed to read temperature signal result: No such device or address";
    std::size_t number = 0;  ///< of the registration among what is sent
};

TEST_P(RegistrationReplyTest, StallsAfterAnUnreadableReply) {
    EXPECT_EQ(bus.last().deliver(messages.reply("s", "done")), -ENXIO);
    EXPECT_EQ(log.take(), (Lines{unreadable}));
    expect_stall();
}

TEST_P(RegistrationReplyTest, StallsAfterAReplyThatEndsTooEarly) {
    EXPECT_EQ(bus.last().deliver(messages.reply("")), -ENXIO);
    EXPECT_EQ(bus.last().deliver(messages.reply("i", 10)), -ENXIO);
    EXPECT_EQ(log.take(), (Lines{unreadable, unreadable}));
    expect_stall();
}

TEST_P(RegistrationReplyTest, StallsAfterAnyNegativeResult) {
    bus.change_results(support::MessageFunction::read, {-EPERM});
    EXPECT_EQ(bus.last().deliver(messages.reply("ib", 10, 0)), -EPERM);
    EXPECT_EQ(log.take(),
              (Lines{"2 Failed to read temperature signal result: Operation not permitted"}));
    expect_stall();
}

TEST_P(RegistrationReplyTest, TakesAResultOfZeroForSuccess) {
    bus.change_results(support::MessageFunction::read, {0});
    answer_registration(10);
}

TEST_P(RegistrationReplyTest, StallsAfterAnErrorReply) {
    EXPECT_EQ(bus.last().deliver(
                  messages.error("org.freedesktop.DBus.Error.ServiceUnknown", "nobody is there")),
              -ENXIO);
    EXPECT_EQ(bus.last().deliver(messages.error("com.example.Error", nullptr)), -ENXIO);
    EXPECT_EQ(log.take(), (Lines{unreadable, unreadable}));
    expect_stall();
}

TEST_P(RegistrationReplyTest, StallsAfterASetErrorArgument) {
    EXPECT_EQ(bus.last().deliver(messages.reply("ib", 10, 1), denied), -EACCES);
    EXPECT_EQ(bus.last().deliver(messages.reply("ib", 10, 1), silent), -ETIMEDOUT);
    EXPECT_EQ(log.take(), (Lines{"1 Error when calling RegisterForTemperatureSignal: not you",
                                 "1 Error when calling RegisterForTemperatureSignal: "}));
    expect_stall();
}

TEST_P(RegistrationReplyTest, AcceptsAnErrorReplyWhoseBodyHasTheRightSignature) {
    EXPECT_EQ(bus.last().deliver(messages.error_with_body("com.example.Error", "ib", 99, 0)), 0);
    EXPECT_TRUE(monitor->woken());
    EXPECT_FALSE(call_pending());
    EXPECT_EQ(bus.take_journal().size(), 1U);
}

TEST_P(RegistrationReplyTest, IgnoresSurplusValues) {
    EXPECT_EQ(bus.last().deliver(messages.reply("ibs", 99, 0, "surplus")), 0);
    EXPECT_TRUE(monitor->woken());
    EXPECT_FALSE(call_pending());
    EXPECT_EQ(bus.take_journal().size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Limits, RegistrationReplyTest, testing::Range<std::size_t>(0, 4));

TEST_F(TemperatureMonitorTest, ReadsASignalUnlessTheResultIsNegative) {
    settle();
    bus.change_results(support::MessageFunction::read, {-EPERM, 0});
    EXPECT_EQ(bus.sending(2).deliver(signal_message(low_off)), -EPERM);
    EXPECT_EQ(log.take(), (Lines{"2 Failed to setup temperature signal: Operation not permitted"}));
    EXPECT_FALSE(monitor->woken());
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), std::nullopt);
    cross(low_off);
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(log.take(), (Lines{set_false}));
    EXPECT_EQ(published(), false);
}

TEST_F(TemperatureMonitorTest, WarnsOfAnUnreadableSignalAndTakesNothingFromIt) {
    settle();
    EXPECT_EQ(bus.sending(2).deliver(messages.signal("/a", "a.b", "TemperatureSignal", "")),
              -ENXIO);
    EXPECT_EQ(
        bus.sending(2).deliver(messages.signal("/a", "a.b", "TemperatureSignal", "di", 1.0, 12)),
        -ENXIO);
    const std::string line = "2 Failed to setup temperature signal: No such device or address";
    EXPECT_EQ(log.take(), (Lines{line, line}));
    EXPECT_FALSE(monitor->woken());
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), std::nullopt);
}

TEST_F(TemperatureMonitorTest, LogsASetErrorArgumentOfASignalAndTakesNothingFromIt) {
    settle();
    EXPECT_EQ(bus.sending(2).deliver(signal_message(low_off), denied), -EACCES);
    EXPECT_EQ(bus.sending(2).deliver(signal_message(low_off), silent), -ETIMEDOUT);
    EXPECT_EQ(log.take(), (Lines{"2 Error while receiving DBus signal: not you",
                                 "2 Error while receiving DBus signal: "}));
    EXPECT_FALSE(monitor->woken());
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), std::nullopt);
}

}  // namespace
