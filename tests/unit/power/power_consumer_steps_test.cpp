#include <cerrno>
#include <limits>
#include <ostream>

#include "tests/unit/power/power_consumer_fixture.hpp"

namespace {

using namespace consumer_test;

TEST_F(PowerConsumerTest, InstallsTheOwnerMatchAndRegistersInItsFirstRun) {
    make();
    begin();
    const support::Sending& match = bus.sending(1);
    EXPECT_EQ(match.bus, messages.bus());
    EXPECT_EQ(match.slot_field, LayoutProbe::match_slot_field(**consumer));
    EXPECT_EQ(match.userdata, &**consumer);
    EXPECT_NE(match.callback, nullptr);
    const support::Sending& call = bus.sending(2);
    EXPECT_EQ(call.bus, messages.bus());
    EXPECT_EQ(call.slot_field, LayoutProbe::call_slot_field(**consumer));
    EXPECT_EQ(call.userdata, &**consumer);
    EXPECT_EQ(LayoutProbe::bus(**consumer), messages.bus());
    EXPECT_FALSE(consumer->woken());
}

TEST_F(PowerConsumerTest, AsksForPowerOnceItIsRegistered) {
    make();
    enlist();
    EXPECT_EQ(run_woken(), (Journal{request}));
    EXPECT_EQ(bus.last().bus, messages.bus());
    EXPECT_EQ(bus.last().slot_field, LayoutProbe::call_slot_field(**consumer));
    EXPECT_EQ(bus.last().userdata, &**consumer);
    EXPECT_NE(bus.last().callback, bus.sending(2).callback);
}

TEST_F(PowerConsumerTest, SendsNothingMoreOnceItHasAskedForPower) {
    make();
    ask();
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(run(), Journal{});
    EXPECT_FALSE(consumer->woken());
    EXPECT_EQ(bus.count(), 3U);
}

TEST_F(PowerConsumerTest, WaitsForThePendingCall) {
    make();
    begin();
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(run(), Journal{});
    answer();
    EXPECT_EQ(run_woken(), (Journal{request}));
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(run(), Journal{});
}

TEST_F(PowerConsumerTest, AsksForItsPowerAsTheFloatThatItIs) {
    for (const auto& [power, text] : {std::pair{0.1, "0.10000000149011612"},
                                      {-3.0, "-3"},
                                      {0.0, "0"},
                                      {std::numeric_limits<double>::infinity(), "inf"},
                                      {std::numeric_limits<double>::quiet_NaN(), "nan"}}) {
        make({{"power", power}});
        enlist();
        EXPECT_EQ(run_woken(),
                  (Journal{controller_call("RequestPower(s \"vipd0\", s \"control\", d " +
                                           std::string(text) + ")")}));
        consumer.reset();
        (void)bus.take_journal();
    }
}

TEST_F(PowerConsumerTest, AsksUnderTheNameOfItsChannel) {
    make({{"channel", -1}, {"power", 12.5}});
    EXPECT_EQ(run().size(), 2U);
    answer();
    EXPECT_EQ(run_woken(),
              (Journal{controller_call("RequestPower(s \"vipd-1\", s \"control\", d 12.5)")}));
    (*consumer)->stop();
    EXPECT_EQ(bus.take_journal().back(), controller_call("Unregister(s \"vipd-1\") without reply"));
}

/// A state before a run, and the call that the run makes in it.
struct RunCase {
    const char* name;
    bool registered;
    bool power_requested;
    bool call_pending;
    Journal calls;
};

void PrintTo(const RunCase& state, std::ostream* out) {
    *out << state.name;
}

void establish(const RunCase& state, PowerConsumer& consumer) {
    LayoutProbe::registered(consumer) = state.registered;
    LayoutProbe::power_requested(consumer) = state.power_requested;
}

class PowerConsumerRunTest : public PowerConsumerTest,
                             public testing::WithParamInterface<RunCase> {};

TEST_P(PowerConsumerRunTest, MakesTheCallThatTheStateAsksForAndPublishesNothing) {
    make();
    begin();
    if (!GetParam().call_pending) {
        answer();
        EXPECT_TRUE(consumer->woken());
    }
    establish(GetParam(), **consumer);
    EXPECT_EQ(run(), GetParam().calls);
    EXPECT_EQ(published(), std::nullopt);
}

TEST_P(PowerConsumerRunTest, MakesTheSameCallAndPublishesWhenItsEventPortWasFired) {
    make();
    begin();
    if (!GetParam().call_pending)
        answer();
    establish(GetParam(), **consumer);
    set_power(2.5);
    EXPECT_EQ(run_woken(), GetParam().calls);
    EXPECT_EQ(published(), 2.5F);
    EXPECT_EQ(LayoutProbe::registered(**consumer), GetParam().registered);
    EXPECT_EQ(LayoutProbe::power_requested(**consumer), GetParam().power_requested);
}

const RunCase run_cases[] = {
    {"Unregistered", false, false, false, {registration}},
    {"Registering", false, false, true, {}},
    {"UnregisteredButAsked", false, true, false, {registration}},
    {"RegisteringAgain", false, true, true, {}},
    {"Registered", true, false, false, {request}},
    {"Asking", true, false, true, {}},
    {"Asked", true, true, false, {}},
    {"AskedWithACallPending", true, true, true, {}},
};

INSTANTIATE_TEST_SUITE_P(States, PowerConsumerRunTest, testing::ValuesIn(run_cases),
                         [](const auto& of) { return std::string(of.param.name); });

TEST_F(PowerConsumerTest, InstallsTheMatchBeforeAnyCallInItsFirstRun) {
    for (const RunCase& state : run_cases) {
        if (state.call_pending)
            continue;  // not before the first run
        make();
        establish(state, **consumer);
        Journal expected{owner_match};
        expected.insert(expected.end(), state.calls.begin(), state.calls.end());
        EXPECT_EQ(run(), expected) << state.name;
        EXPECT_EQ(published(), std::nullopt) << state.name;
        consumer.reset();
        (void)bus.take_journal();
    }
}

TEST_F(PowerConsumerTest, DoesNotTryARefusedMatchAgain) {
    make();
    bus.answer_next({-EPERM});
    begin();
    EXPECT_EQ(log.take(),
              (Lines{"1 Failed to add match for NameOwnerChanged: Operation not permitted"}));
    EXPECT_FALSE(match_held());
    answer();
    EXPECT_EQ(run_woken(), (Journal{request}));
    EXPECT_EQ(run(), Journal{});
    (*consumer)->stop();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #3 RequestPower", deregistration}));
}

TEST_F(PowerConsumerTest, RegistersAgainWhenThatCouldNotBeSent) {
    make();
    bus.answer_next({1, -EPERM, -ENOBUFS});
    begin();
    EXPECT_EQ(log.take(), (Lines{"1 Failed to register consumer: Operation not permitted"}));
    EXPECT_FALSE(call_pending());
    EXPECT_FALSE(consumer->woken()) << "the next run comes for another reason";
    EXPECT_EQ(run(), (Journal{registration}));
    EXPECT_EQ(log.take(), (Lines{"1 Failed to register consumer: No buffer space available"}));
    EXPECT_EQ(run(), (Journal{registration}));
    answer();
    EXPECT_EQ(run_woken(), (Journal{request}));
}

TEST_F(PowerConsumerTest, AsksAgainWhenThatCouldNotBeSent) {
    make();
    enlist();
    bus.answer_next({-EPERM});
    EXPECT_EQ(run_woken(), (Journal{request}));
    EXPECT_EQ(log.take(), (Lines{"1 Failed to request power: Operation not permitted"}));
    EXPECT_FALSE(call_pending());
    EXPECT_FALSE(consumer->woken());
    EXPECT_EQ(run(), (Journal{request}));
    EXPECT_TRUE(call_pending());
}

TEST_F(PowerConsumerTest, TakesAResultOfZeroFromSdBusForSuccess) {
    make();
    bus.answer_next({0, 0, 0});
    ask();
    EXPECT_TRUE(match_held());
}

}  // namespace
