#include <cerrno>

#include "tests/unit/power/power_consumer_fixture.hpp"

namespace {

using namespace consumer_test;

TEST_F(PowerConsumerTest, GivesItsSlotsUpAndUnregistersWhenStopped) {
    make();
    begin();
    (*consumer)->stop();
    EXPECT_EQ(bus.take_journal(),
              (Journal{"release #1 match", "release #2 Register", deregistration}));
    EXPECT_FALSE(match_held());
    EXPECT_FALSE(call_pending());
    EXPECT_EQ(bus.last().bus, messages.bus());
    EXPECT_EQ(bus.last().slot_field, nullptr);
    EXPECT_EQ(bus.last().callback, nullptr);
    EXPECT_FALSE(consumer->woken());
}

TEST_F(PowerConsumerTest, UnregistersOnceItHasAskedForPower) {
    make();
    ask();
    (*consumer)->stop();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #1 match", deregistration}));
}

TEST_F(PowerConsumerTest, UnregistersAgainWithEveryStop) {
    make();
    begin();
    (*consumer)->stop();
    (void)bus.take_journal();
    (*consumer)->stop();
    EXPECT_EQ(bus.take_journal(), (Journal{deregistration}));
}

TEST_F(PowerConsumerTest, TriesToUnregisterAlsoWithoutAConnection) {
    make();
    bus.answer_next({-EINVAL});
    (*consumer)->stop();
    EXPECT_EQ(bus.take_journal(), (Journal{deregistration}));
    EXPECT_EQ(bus.last().bus, nullptr);
    EXPECT_EQ(log.take(), (Lines{"1 Failed to unregister power consumer: Invalid argument"}));
}

/// sd-bus itself says that there is no connection.
TEST(PowerConsumerWithoutABusTest, FailsToUnregister) {
    support::LogRecorder log;
    PowerConsumer consumer("consumer", {{"power", 1.0}});
    EXPECT_EQ(log.take(), (Lines{announcement}));
    consumer.stop();
    EXPECT_EQ(log.take(), (Lines{"1 Failed to unregister power consumer: Invalid argument"}));
}

TEST_F(PowerConsumerTest, SaysThatItCouldNotUnregister) {
    make();
    ask();
    bus.answer_next({-EPERM});
    (*consumer)->stop();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #1 match", deregistration}));
    EXPECT_EQ(log.take(), (Lines{"1 Failed to unregister power consumer: "
                                 "Operation not permitted"}));
}

TEST_F(PowerConsumerTest, IsStillWokenByItsCallbacksOnceItIsStopped) {
    make();
    begin();
    (*consumer)->stop();
    (void)bus.take_journal();
    EXPECT_EQ(bus.sending(2).deliver(messages.reply("")), 0);
    EXPECT_TRUE(consumer->woken());
    lose_controller();
    EXPECT_TRUE(consumer->woken());
    EXPECT_EQ(bus.take_journal(), Journal{});
}

TEST_F(PowerConsumerTest, GoesOnWithoutTheMatchWhenItIsRunAfterAStop) {
    make();
    begin();
    (*consumer)->stop();
    (void)bus.take_journal();
    EXPECT_EQ(run(), (Journal{registration})) << "the registration was never answered";
    answer();
    EXPECT_EQ(run_woken(), (Journal{request}));
    EXPECT_FALSE(match_held());
}

TEST_F(PowerConsumerTest, SendsNothingInARunAfterAStopOnceItHasAskedForPower) {
    make();
    ask();
    (*consumer)->stop();
    (void)bus.take_journal();
    EXPECT_EQ(run(), Journal{}) << "the flags outlive the stop";
}

TEST_F(PowerConsumerTest, InstallsTheMatchInItsFirstRunAlsoAfterAStop) {
    make();
    (*consumer)->stop();
    EXPECT_EQ(bus.take_journal(), (Journal{deregistration}));
    EXPECT_EQ(run(), (Journal{owner_match, registration}));
}

TEST_F(PowerConsumerTest, GivesUpItsCallAndThenItsMatchWhenDestroyed) {
    make();
    begin();
    consumer.reset();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #2 Register", "release #1 match"}))
        << "only a stop unregisters";
}

TEST_F(PowerConsumerTest, HasNothingLeftToGiveUpWhenDestroyedAfterAStop) {
    make();
    begin();
    (*consumer)->stop();
    (void)bus.take_journal();
    consumer.reset();
    EXPECT_EQ(bus.take_journal(), Journal{});
}

TEST_F(PowerConsumerTest, TakesAResultOfZeroForHavingUnregistered) {
    make();
    bus.answer_next({0});
    (*consumer)->stop();
    EXPECT_EQ(bus.take_journal(), (Journal{deregistration}));
}

}  // namespace
