#include <cerrno>
#include <limits>
#include <tuple>
#include <utility>

#include "tests/unit/power/power_consumer_fixture.hpp"

namespace {

using namespace consumer_test;

TEST_F(PowerConsumerTest, RegistersAndThenAsksForPower) {
    settle();
    EXPECT_EQ(run(), Journal{});
    expect_handed_over(bus.sending(1), LayoutProbe::match_slot_field(block()), &block());
    for (const std::size_t call : {2, 3})
        expect_handed_over(bus.sending(call), LayoutProbe::call_slot_field(block()), &block());
    EXPECT_NE(bus.sending(2).callback, bus.sending(3).callback);
    EXPECT_EQ(LayoutProbe::bus(block()), messages.bus());
}

TEST_F(PowerConsumerTest, AsksForItsPowerAsTheFloatThatItIs) {
    for (const auto& [power, text] : {std::pair{0.1, "0.10000000149011612"},
                                      {-3.0, "-3"},
                                      {0.0, "0"},
                                      {std::numeric_limits<double>::infinity(), "inf"},
                                      {std::numeric_limits<double>::quiet_NaN(), "nan"}}) {
        make({{"power", power}});
        EXPECT_EQ(run(), (Journal{owner_match, registration}));
        answer();
        EXPECT_EQ(run_woken(), (Journal{nothing_granted, request_of("0", text)}));
    }
}

/// A state before a run, and the call that the run makes in it.
struct RunCase : support::NamedCase {
    bool registered;
    bool power_requested;
    bool call_pending;
    Journal calls;
};

class PowerConsumerRunTest : public PowerConsumerTest, public testing::WithParamInterface<RunCase> {
  protected:
    /// The effects of a run are those `earlier` ones and then the call of the state.
    void expect_run(const Journal& effects, Journal earlier) {
        earlier.insert(earlier.end(), GetParam().calls.begin(), GetParam().calls.end());
        EXPECT_EQ(effects, earlier);
    }
    void establish() {
        LayoutProbe::registered(block()) = GetParam().registered;
        LayoutProbe::power_requested(block()) = GetParam().power_requested;
    }
    /// Takes a block into the state, past its first run.
    void reach() {
        enlist();
        if (!GetParam().call_pending)
            answer();
        establish();
    }
};

TEST_P(PowerConsumerRunTest, MakesTheCallThatTheStateAsksForAfterMatchAndPublication) {
    reach();
    expect_run(run(), {});
    reach();
    EXPECT_EQ(set_power(2.5), granted);
    expect_run(run_woken(), {publication("2.5")});
    EXPECT_EQ(registered(), GetParam().registered);
    EXPECT_EQ(power_requested(), GetParam().power_requested);
    if (GetParam().call_pending)
        return;  // not before the first run
    make();
    establish();
    expect_run(run(), {owner_match});
}

const RunCase run_cases[] = {
    {{"Unregistered"}, false, false, false, {registration}},
    {{"Registering"}, false, false, true, {}},
    {{"UnregisteredButAsked"}, false, true, false, {registration}},
    {{"RegisteringAgain"}, false, true, true, {}},
    {{"Registered"}, true, false, false, {request}},
    {{"Asking"}, true, false, true, {}},
    {{"Asked"}, true, true, false, {}},
    {{"AskedWithACallPending"}, true, true, true, {}},
};

INSTANTIATE_TEST_SUITE_P(States, PowerConsumerRunTest, testing::ValuesIn(run_cases),
                         support::case_name<RunCase>);

TEST_F(PowerConsumerTest, PublishesAfterARefusedMatchThatItDoesNotTryAgain) {
    make();
    EXPECT_EQ(set_power(2.5), granted);
    bus.answer_next({-EPERM});
    EXPECT_EQ(run_woken(), (Journal{owner_match,
                                    "1 Failed to add match for NameOwnerChanged: "
                                    "Operation not permitted",
                                    publication("2.5"), registration}));
    EXPECT_FALSE(match_held());
    answer();
    EXPECT_EQ(run_woken(), (Journal{publication("2.5"), request}));
    EXPECT_EQ(stop(), (Journal{"release #3 RequestPower", deregistration}));
}

TEST_F(PowerConsumerTest, CallsAgainInTheNextRunWhatCouldNotBeSent) {
    make();
    bus.answer_next({1, -EPERM, -ENOBUFS, 1, -EPERM});
    EXPECT_EQ(run(), (Journal{owner_match, registration,
                              "1 Failed to register consumer: Operation not permitted"}));
    EXPECT_EQ(run(),
              (Journal{registration, "1 Failed to register consumer: No buffer space available"}));
    EXPECT_EQ(run(), Journal{registration});
    answer();
    EXPECT_EQ(run_woken(), (Journal{nothing_granted, request,
                                    "1 Failed to request power: Operation not permitted"}));
    EXPECT_FALSE(call_pending());
    EXPECT_EQ(run(), Journal{request});
    EXPECT_TRUE(call_pending());
}

TEST_F(PowerConsumerTest, TakesAResultOfZeroFromSdBusForSuccess) {
    bus.answer_next({0, 0, 0, 0});
    settle();
    EXPECT_TRUE(match_held());
    EXPECT_EQ(stop(), (Journal{"release #1 match", deregistration}));
}

TEST_F(PowerConsumerTest, KeepsTheConnectionOfItsFirstRun) {
    enlist();
    recorders.tools.use_bus(other_bus());
    answer();
    EXPECT_EQ(run_woken(), (Journal{nothing_granted, request}));
    EXPECT_EQ(stop().back(), deregistration);
    for (std::size_t sending = 1; sending <= bus.count(); ++sending)
        EXPECT_EQ(bus.sending(sending).bus, messages.bus());
}

/// One of the two calls of the controller.
struct CallCase {
    const char* name;
    std::string call;
    std::string release;
    std::string error_prefix;
    std::atomic<bool>& (*answered)(PowerConsumer&);
};

/// An answer, and the end of the line about it; null for one that counts.
struct ReplyCase {
    const char* name;
    support::MakeMessage reply;
    sd_bus_error error;
    const char* refusal;
};

/// Leaves each call of the controller unanswered, for the test to answer.
class PowerConsumerReplyTest : public PowerConsumerTest,
                               public testing::WithParamInterface<std::tuple<CallCase, ReplyCase>> {
};

TEST_P(PowerConsumerReplyTest, IsRecordedBeforeTheCallIsGivenUpAndTheBlockWoken) {
    const CallCase& call = std::get<CallCase>(GetParam());
    const ReplyCase& reply = std::get<ReplyCase>(GetParam());
    if (call.call == request)
        ask();
    else
        enlist();
    const bool counts = reply.refusal == nullptr;
    remark([&] { return std::pair(call.answered(block()).load(), call_pending()); });
    Journal effects{call.release + " | (false, true)", fired + " | (false, false)"};
    if (counts)
        effects = {call.release + " | (true, true)", fired + " | (true, false)"};
    else
        effects.insert(effects.begin(),
                       "2 " + call.error_prefix + reply.refusal + " | (false, true)");
    EXPECT_EQ(deliver(bus.last(), reply.reply(messages), reply.error), effects);
    EXPECT_EQ(readings(), Journal{}) << "an answer is not read";
    journal.remark_with({});
    if (!counts) {
        EXPECT_EQ(run_woken(), (Journal{nothing_granted, call.call})) << "again";
    }
}

const CallCase call_cases[] = {
    {"Register", registration, "release #2 Register",
     "Error when register power consumer: ", &blocks::LayoutProbe::registered},
    {"RequestPower", request, "release #3 RequestPower",
     "Error when requesting power: ", &blocks::LayoutProbe::power_requested},
};

const support::MakeMessage any_reply = support::reply_of("si", "surplus", 5);

const ReplyCase reply_cases[] = {
    {"AnyBody", any_reply, SD_BUS_ERROR_NULL, nullptr},
    {"Error", support::error_of("com.example.Error", "nobody"), SD_BUS_ERROR_NULL, nullptr},
    {"NamelessErrorArgument", any_reply, support::nameless, nullptr},
    {"ErrorArgument", any_reply, support::denied, "not you"},
    {"ErrorArgumentWithoutText", any_reply, support::silent, ""},
};

INSTANTIATE_TEST_SUITE_P(Calls, PowerConsumerReplyTest,
                         testing::Combine(testing::ValuesIn(call_cases),
                                          testing::ValuesIn(reply_cases)),
                         [](const auto& of) {
                             return std::string(std::get<0>(of.param).name) +
                                    std::get<1>(of.param).name;
                         });

}  // namespace
