#include <cerrno>
#include <tuple>

#include "tests/unit/power/power_consumer_fixture.hpp"

namespace {

using namespace consumer_test;
using support::denied;

TEST_F(PowerConsumerTest, TakesTheStepsOfItsConstructionInThisOrder) {
    consumer.emplace(recorders.tools, "consumer",
                     support::observed({{"power", 1.0}, {"channel", 3}}));
    EXPECT_EQ(take(), (Journal{"input timer_in", "output power_out", "event event_port",
                               "int channel or a default", "float power", announcement,
                               "export /com/tarlo/Vipd/PowerConsumer "
                               "com.tarlo.Vipd.PowerConsumer"}));
}

/// Looks at what a consumer knows at each effect: whether it is registered, whether it has asked,
/// whether a call is out, and what it is granted.
class PowerConsumerOrderTest : public PowerConsumerTest {
  protected:
    void SetUp() override {
        make();
        begin();
        (void)take();
        remark([this] {
            return std::tuple(LayoutProbe::registered(**consumer).load(),
                              LayoutProbe::power_requested(**consumer).load(), call_pending(),
                              LayoutProbe::granted_power(**consumer).load());
        });
    }
    Journal after_change(const char* new_owner) {
        EXPECT_EQ(bus.sending(1).deliver(
                      owner_change("sss", "com.tarlo.PowerControl.Consumer", ":1.5", new_owner)),
                  0);
        return take();
    }
};

TEST_F(PowerConsumerOrderTest, RecordsAnAnswerGivesItsCallUpAndIsThenWokenOnce) {
    EXPECT_EQ(bus.last().deliver(messages.reply("s", "more"), denied), 0);
    EXPECT_EQ(take(), (Journal{"2 Error when register power consumer: not you | "
                               "(false, false, true, 0)",
                               "release #2 Register | (false, false, true, 0)",
                               "fire event_port | (false, false, false, 0)"}));
    EXPECT_TRUE((*consumer)->run());
    (void)take();
    EXPECT_EQ(bus.last().deliver(messages.reply("s", "more")), 0);
    EXPECT_EQ(take(), (Journal{"release #3 Register | (true, false, true, 0)",
                               "fire event_port | (true, false, false, 0)"}));
    EXPECT_TRUE((*consumer)->run());
    (void)take();
    EXPECT_EQ(bus.last().deliver(messages.reply("s", "more")), 0);
    EXPECT_EQ(take(), (Journal{"release #4 RequestPower | (true, true, true, 0)",
                               "fire event_port | (true, true, false, 0)"}));
    EXPECT_EQ(readings(), Journal{}) << "an answer is not read";
}

TEST_F(PowerConsumerOrderTest, RecordsALossAfterTellingOfItAndIsThenWokenOnce) {
    LayoutProbe::registered(**consumer) = true;
    LayoutProbe::power_requested(**consumer) = true;
    const std::string begin =
        "4 Owner of 'com.tarlo.PowerControl.Consumer' changed from ':1.5' to '";
    EXPECT_EQ(after_change(":1.6"), (Journal{begin + ":1.6' | (true, true, true, 0)"}));
    EXPECT_EQ(after_change(""), (Journal{begin + "' | (true, true, true, 0)",
                                         "fire event_port | (false, false, true, 0)"}));
}

TEST_F(PowerConsumerOrderTest, RecordsAGrantIsWokenOnceAndThenAnswers) {
    EXPECT_EQ(set_power(grant("d", 2.5)), 1);
    EXPECT_EQ(take(), (Journal{"fire event_port | (false, false, true, 2.5)",
                               "answer \"\"() = 1 | (false, false, true, 2.5)"}));
    EXPECT_EQ(set_power(grant("s", "much")), -ENXIO);
    EXPECT_EQ(take(), (Journal{"1 Failed to parse parameters: No such device or address | "
                               "(false, false, true, 2.5)"}));
}

TEST_F(PowerConsumerTest, DoesNotLookAtTheErrorArgumentOfAGrant) {
    make();
    EXPECT_EQ(support::call_back(LayoutProbe::exported_methods()[1].x.method.handler,
                                 grant("d", 2.5), &**consumer, denied),
              1);
    EXPECT_EQ(LayoutProbe::granted_power(**consumer), 2.5F);
    EXPECT_EQ(bus.take_journal().size(), 1U);
}

TEST_F(PowerConsumerTest, PublishesBetweenItsMatchAndItsRegistration) {
    make();
    set_power(2.5);
    (void)take();
    bus.answer_next({-EPERM});
    EXPECT_TRUE(consumer->run_woken());
    EXPECT_EQ(
        take(),
        (Journal{owner_match, "1 Failed to add match for NameOwnerChanged: Operation not permitted",
                 "publish power_out = 2.5", registration}));
}

TEST_F(PowerConsumerTest, KeepsTheConnectionOfItsFirstRun) {
    make();
    begin();
    recorders.tools.use_bus(other_bus());
    answer();
    EXPECT_EQ(run_woken(), (Journal{request}));
    (*consumer)->stop();
    EXPECT_EQ(bus.take_journal().back(), deregistration);
    for (std::size_t sending = 1; sending <= bus.count(); ++sending)
        EXPECT_EQ(bus.sending(sending).bus, messages.bus());
}

}  // namespace
