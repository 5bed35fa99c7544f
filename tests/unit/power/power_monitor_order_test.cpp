#include <cerrno>
#include <stdexcept>
#include <tuple>

#include "tests/unit/power/power_monitor_fixture.hpp"

namespace {

using namespace monitor_test;
using support::denied;

TEST_F(PowerMonitorTest, TakesTheStepsOfItsConstructionInThisOrder) {
    recorders.tools.reply_next(messages.reply("d", 7.0));
    monitor.emplace(recorders.tools, "monitor", support::observed({{"requested_power", 5.0}}));
    EXPECT_EQ(take(),
              (Journal{"output power_ok_out", "event event_port", "float requested_power",
                       first_read, "fire event_port", "release the reply to PowerReceived"}));
}

TEST_F(PowerMonitorTest, TakesTheSameStepsWithoutAReply) {
    recorders.tools.throw_next(std::runtime_error("no luck"));
    monitor.emplace(recorders.tools, "monitor", support::observed({{"requested_power", 5.0}}));
    Journal steps = take();
    steps.erase(steps.begin(), steps.begin() + 3);
    EXPECT_EQ(steps,
              (Journal{first_read,
                       "1 Failed to get PowerReceived from com.tarlo.PowerControl.Status. no luck",
                       "1 Failed to get PowerReceived from dbus reply.\n", "fire event_port"}));
}

/// Looks at what a monitor knows at each effect: whether its match counts, whether it has been
/// answered, the power, the failures, and whether it is stopped.
class PowerMonitorOrderTest : public PowerMonitorTest {
  protected:
    void SetUp() override {
        make(5.0);
        EXPECT_EQ(run(), (Journal{change_match}));
        (void)take();
        remark([this] {
            const PowerMonitor& now = **monitor;
            return std::tuple(LayoutProbe::match_added(now), LayoutProbe::value_received(now),
                              received(), failures(), LayoutProbe::stopped(now));
        });
    }
    /// What a callback does.
    template <class... Error>
    Journal installed(const support::Message& reply, Error... error) {
        EXPECT_EQ(bus.sending(1).install(reply, error...), answered);
        return take();
    }
    template <class... Error>
    Journal delivered(const support::Sending& sending, const support::Message& message,
                      Error... error) {
        EXPECT_EQ(sending.deliver(message, error...), answered);
        return take();
    }
    void go_on() {
        EXPECT_TRUE((*monitor)->run());
        (void)take();
        (void)readings();
    }
};

TEST_F(PowerMonitorOrderTest, RecordsAnInstallationIsWokenOnceAndThenAnswers) {
    EXPECT_EQ(installed(messages.reply("s", "more"), denied),
              (Journal{"1 Failed to add match for PowerReceived: not you | (false, false, 5, 0, "
                       "false)",
                       "fire event_port | (false, false, 5, 1, false)",
                       answer + " | (false, false, 5, 1, false)"}));
    EXPECT_EQ(installed(messages.reply("s", "more")),
              (Journal{"fire event_port | (true, false, 5, 0, false)",
                       answer + " | (true, false, 5, 0, false)"}));
    EXPECT_EQ(readings(), Journal{"read"}) << "in the construction";
}

TEST_F(PowerMonitorOrderTest, TellsOfAnUnreadableAnswerAfterItIsWokenAndOfARefusalBefore) {
    (void)installed(messages.reply(""));
    go_on();
    EXPECT_EQ(delivered(bus.sending(2), messages.reply("v", "d", 7.0), denied),
              (Journal{"1 Failed to get PowerReceived: not you | (true, false, 5, 0, false)",
                       "fire event_port | (true, false, 5, 1, false)",
                       answer + " | (true, false, 5, 1, false)"}));
    EXPECT_EQ(readings(), Journal{});
    EXPECT_EQ(delivered(bus.sending(2), messages.reply("")),
              (Journal{"fire event_port | (true, false, 5, 2, false)",
                       "1 Failed to read value of PowerReceived: No such device or address | "
                       "(true, false, 5, 2, false)",
                       answer + " | (true, false, 5, 2, false)"}));
    EXPECT_EQ(delivered(bus.sending(2), messages.reply("v", "d", 7.0)),
              (Journal{"fire event_port | (true, true, 7, 0, false)",
                       answer + " | (true, true, 7, 0, false)"}));
}

TEST_F(PowerMonitorOrderTest, RecordsAChangeIsWokenOnceAndThenAnswers) {
    EXPECT_EQ(delivered(bus.sending(1), change(1, "PowerReceived", "d", 6.0)),
              (Journal{"fire event_port | (false, false, 6, 0, false)",
                       answer + " | (false, false, 6, 0, false)"}));
    (void)readings();
    EXPECT_EQ(bus.sending(1).deliver(change(1, "PowerReceived", "d", 9.0), denied), -1);
    EXPECT_EQ(take(), (Journal{"1 Failed to get match for PowerReceived: not you | "
                               "(false, false, 6, 0, false)"}));
    EXPECT_EQ(readings(), Journal{}) << "behind a set error argument nothing is read";
}

TEST_F(PowerMonitorOrderTest, TakesAPowerBeforeItLeavesItsContainer) {
    bus.make_up(support::MessageFunction::exit_container, {-EPERM});
    EXPECT_EQ(
        delivered(bus.sending(1), change(1, "PowerReceived", "d", 6.0)),
        (Journal{"1 Failed to exit container for: PowerReceived\n | (false, false, 6, 0, false)",
                 "fire event_port | (false, false, 6, 0, false)",
                 answer + " | (false, false, 6, 0, false)"}));
}

TEST_F(PowerMonitorOrderTest, ReadsNothingBehindItsPropertyAndNotWhatIsInvalidated) {
    journal.remark_with({});
    (void)readings();
    (void)delivered(bus.sending(1), change(2, "PowerReceived", "d", 6.0, "B", "i", 1));
    EXPECT_EQ(readings(),
              (Journal{"skip", "enter", "enter", "read", "enter", "read", "exit", "enter"}));
    (void)delivered(bus.sending(1), change(1, "B", "i", 1));
    EXPECT_EQ(readings(), (Journal{"skip", "enter", "enter", "read", "skip", "exit", "enter"}));
}

TEST_F(PowerMonitorOrderTest, PublishesAtTheEndOfEachRun) {
    bus.answer_next({-ENOTCONN});
    EXPECT_TRUE((*monitor)->run());
    journal.remark_with({});
    EXPECT_EQ(take(), (Journal{"release #1 match | (false, false, 5, 0, false)",
                               change_match + " | (false, false, 5, 0, false)",
                               "1 Failed to send properties changed signal handler request: "
                               "Transport endpoint is not connected | (false, false, 5, 0, false)",
                               "publish power_ok_out = true"}));
}

TEST_F(PowerMonitorOrderTest, IsStoppedBeforeItGivesItsSlotsUpAndKeepsWhatItKnows) {
    (void)installed(messages.reply(""));
    go_on();
    (void)delivered(bus.sending(2), messages.reply("v", "d", 7.0));
    (*monitor)->stop();
    EXPECT_EQ(take(), (Journal{"release #1 match | (true, true, 7, 0, true)",
                               "release #2 Get | (true, true, 7, 0, true)"}));
    EXPECT_EQ(run(), Journal{}) << "neither matched nor asked again";
}

TEST_F(PowerMonitorTest, TakesTheConnectionAnewAtEachUse) {
    make();
    match();
    recorders.tools.use_bus(other_bus());
    EXPECT_EQ(run(), (Journal{query}));
    EXPECT_EQ(bus.sending(1).bus, messages.bus());
    EXPECT_EQ(bus.sending(2).bus, other_bus());
}

}  // namespace
