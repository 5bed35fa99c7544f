#include <tuple>

#include "tests/unit/temperature/temperature_monitor_fixture.hpp"

namespace {

using namespace monitor_test;

/// One of the two matches of a monitor.
struct MatchCase : NamedCase {
    std::size_t number;  ///< of its sending
    std::string sent;
    std::string error_line;  ///< for a set error argument
};

const MatchCase matches[] = {
    {"Owner", 1, owner_match, "1 Error when adding match for NameOwnerChanged: "},
    {"Signal", 2, signal_match, "1 Error when adding match for TemperatureSignal: "},
};

class TemperatureMonitorMatchTest : public TemperatureMonitorTest,
                                    public testing::WithParamInterface<MatchCase> {
  protected:
    void SetUp() override {
        reach(GetParam().number);
        EXPECT_EQ(run(), (Journal{GetParam().sent}));
    }
};

TEST_P(TemperatureMonitorMatchTest, CountsAsInstalledAlsoWhenItIsRefused) {
    EXPECT_EQ(install(bus.last(), messages.error("com.example.Error", "too many")), wake_up);
    EXPECT_EQ(run().size(), 1U) << "the next step";
}

TEST_P(TemperatureMonitorMatchTest, IsHeldAndWaitedForAfterASetErrorArgument) {
    EXPECT_EQ(install(bus.last(), messages.reply(""), denied),
              (Journal{GetParam().error_line + "not you", "fire event_port", returns(-EACCES)}));
    EXPECT_EQ(install(bus.last(), messages.reply(""), silent),
              (Journal{GetParam().error_line, "fire event_port", returns(-ETIMEDOUT)}));
    EXPECT_EQ(run(), Journal{});
    EXPECT_FALSE(bus.last().released);
}

INSTANTIATE_TEST_SUITE_P(Matches, TemperatureMonitorMatchTest, testing::ValuesIn(matches),
                         case_name<MatchCase>);

/// A monitor whose registration of one limit is unanswered.
class RegistrationReplyTest : public TemperatureMonitorTest,
                              public testing::WithParamInterface<std::size_t> {
  protected:
    void SetUp() override {
        reach(GetParam() + 3);
        EXPECT_EQ(run(), (Journal{default_registrations.at(GetParam())}));
        EXPECT_TRUE(woken());
    }
};

TEST_P(RegistrationReplyTest, StallsTheMonitorUntilItsStopWhereItIsOfNoUse) {
    const std::string line = "2 Failed to read temperature signal result: ";
    expect_only_lines(bus.last(), messages.reply("ib", 10, 1),
                      "1 Error when calling RegisterForTemperatureSignal: ", line);
    EXPECT_EQ(deliver(bus.last(), messages.reply("i", 10)),
              (Journal{line + "No such device or address", returns(-ENXIO)}))
        << "ends too early";
    EXPECT_FALSE(woken());
    EXPECT_TRUE(call_pending());
    EXPECT_EQ(run(), Journal{});
    cross(low_off);
    EXPECT_EQ(run(), Journal{}) << "the last verdict is kept";
    lose_controller();
    EXPECT_EQ(change_owner(controller_name, "", ":1.6"), Journal{});
    EXPECT_EQ(run(), Journal{});
    EXPECT_TRUE(verdict());
    EXPECT_EQ(stop().back(), bus.last().release_text);
}

TEST_P(RegistrationReplyTest, IsTakenForItsSignatureAloneAndUnlessTheResultIsNegative) {
    bus.change_results(MessageFunction::read, {0});
    EXPECT_EQ(deliver(bus.last(), error_body_of("ibs", 99, 0, "surplus")(messages)),
              (Journal{bus.last().release_text, "fire event_port"}));
    EXPECT_FALSE(call_pending());
}

INSTANTIATE_TEST_SUITE_P(Limits, RegistrationReplyTest, testing::Range<std::size_t>(0, 4));

TEST_F(TemperatureMonitorTest, TakesARegistrationOfWhichNothingIsReadForTheIdMinusOne) {
    reach(3);
    EXPECT_EQ(run(), (Journal{default_registrations[0]}));
    bus.make_up(MessageFunction::read, {0});
    answer_registration(7, true);
    EXPECT_TRUE(LayoutProbe::registered(block()).front());
    EXPECT_EQ(LayoutProbe::signal_ids(block()).front(), -1);
    EXPECT_TRUE(LayoutProbe::pending_signals(block()).empty()) << "not crossed";
}

TEST_F(TemperatureMonitorTest, TakesNothingFromASignalThatIsOfNoUse) {
    settle();
    const std::string line = "2 Failed to setup temperature signal: ";
    expect_only_lines(bus.sending(2), signal_message(low_off),
                      "2 Error while receiving DBus signal: ", line);
    EXPECT_EQ(deliver(bus.sending(2), signal_of("TemperatureSignal", "di", 1.0, low_off)(messages)),
              (Journal{line + "No such device or address", returns(-ENXIO)}));
    EXPECT_FALSE(woken());
    EXPECT_EQ(run(), Journal{});
}

TEST_F(TemperatureMonitorTest, TakesASignalUnlessTheResultIsNegative) {
    settle();
    bus.change_results(MessageFunction::read, {0});
    cross(low_off);
    EXPECT_EQ(run(), turned_off);
    bus.make_up(MessageFunction::read, {0});
    cross(low_on);
    EXPECT_EQ(run(), (Journal{unexpected("-1")})) << "nothing was read";
}

/// The remark at each effect: both matches added, the first limit registered, its id, the number of
/// pending signals, a call pending, stopped.
TEST_F(TemperatureMonitorTest, RecordsWhatItHearsBeforeItIsWoken) {
    make();
    EXPECT_EQ(run(), (Journal{owner_match}));
    (void)readings();
    remark([this] {
        const TemperatureMonitor& now = block();
        return std::tuple(
            LayoutProbe::owner_match_added(now), LayoutProbe::signal_match_added(now),
            LayoutProbe::registered(now).front(), LayoutProbe::signal_ids(now).front(),
            LayoutProbe::pending_signals(now).size(), call_pending(), LayoutProbe::stopped(now));
    });
    EXPECT_EQ(
        install(bus.last(), messages.reply(""), denied),
        (Journal{"1 Error when adding match for NameOwnerChanged: not you | "
                 "(false, false, false, 0, 0, false, false)",
                 "fire event_port | (false, false, false, 0, 0, false, false)", returns(-EACCES)}));
    EXPECT_EQ(install(bus.last(), messages.reply("s", "more")),
              (Journal{"fire event_port | (true, false, false, 0, 0, false, false)"}));
    EXPECT_EQ(run().size(), 1U);
    EXPECT_EQ(install(bus.last(), messages.reply("s", "more")),
              (Journal{"fire event_port | (true, true, false, 0, 0, false, false)"}));
    EXPECT_EQ(readings(), Journal{}) << "what confirms a match is not read";
    EXPECT_EQ(run().size(), 1U);
    EXPECT_EQ(deliver(bus.last(), messages.reply("ib", low_on, 1)),
              (Journal{"release #3 RegisterForTemperatureSignal | "
                       "(true, true, true, 10, 1, true, false)",
                       "fire event_port | (true, true, true, 10, 1, false, false)"}));
    EXPECT_EQ(deliver(bus.sending(2), signal_message(low_off)),
              (Journal{"fire event_port | (true, true, true, 10, 2, false, false)"}));
    EXPECT_EQ(change_owner(controller_name, ":1.5", ""),
              (Journal{"fire event_port | (true, true, false, 10, 2, false, false)"}));
    EXPECT_EQ(stop(), (Journal{"release #2 TemperatureSignal | "
                               "(true, true, false, 10, 2, false, true)",
                               "release #1 match | (true, true, false, 10, 2, false, true)"}))
        << "stopped before anything is given up, with its flags and its queue as they were";
}

}  // namespace
