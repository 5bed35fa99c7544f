#include <cerrno>
#include <utility>

#include "tests/unit/power/power_consumer_fixture.hpp"

namespace {

using namespace consumer_test;

TEST_F(PowerConsumerTest, RegistersAndAsksAgainWhenTheControllerIsLost) {
    settle();
    lose_controller();
    EXPECT_EQ(run_woken(), (Journal{nothing_granted, registration})) << "without another match";
    answer();
    EXPECT_EQ(run_woken(), (Journal{nothing_granted, request}));
}

TEST_F(PowerConsumerTest, LeavesThePendingCallAloneWhenTheControllerIsLost) {
    ask();
    lose_controller();
    EXPECT_EQ(run_woken(), Journal{nothing_granted});
    answer();
    EXPECT_EQ(run_woken(), (Journal{nothing_granted, registration}));
    answer();
    EXPECT_EQ(run_woken(), Journal{nothing_granted}) << "the late answer counts";
}

/// An owner change, with the argument that is null in it, if any, and its effects.
struct OwnerCase : support::NamedCase {
    const char* service;
    const char* old_owner;
    const char* new_owner;
    std::optional<std::size_t> null_argument;
    Journal effects;
};

class PowerConsumerOwnerTest : public PowerConsumerTest,
                               public testing::WithParamInterface<OwnerCase> {};

TEST_P(PowerConsumerOwnerTest, HasTheseEffectsWithTheFlagsAtEach) {
    const OwnerCase& change = GetParam();
    settle();
    remark([this] { return std::pair(registered(), power_requested()); });
    if (change.null_argument)
        bus.null_string(*change.null_argument);
    EXPECT_EQ(change_owner(change.old_owner, change.new_owner, change.service), change.effects);
}

constexpr const char* controller = "com.tarlo.PowerControl.Consumer";
const std::string kept = " | (true, true)";
const std::string lost = " | (false, false)";

const OwnerCase owner_cases[] = {
    {{"Loss"}, controller, ":1.5", "", {}, {owner_line(":1.5", "") + kept, fired + lost}},
    {{"Appearance"}, controller, "", ":1.7", {}, {owner_line("", ":1.7") + kept}},
    {{"Replacement"}, controller, ":1.7", ":1.8", {}, {owner_line(":1.7", ":1.8") + kept}},
    {{"NullOldOwner"}, controller, ":1.5", "", 1, {owner_line("", "") + kept, fired + lost}},
    {{"NullNewOwner"}, controller, ":1.5", "", 2, {owner_line(":1.5", "") + kept}},
    {{"NullName"}, controller, ":1.5", "", 0, {}},
    {{"AnotherPart"}, "com.tarlo.PowerControl.Status", ":1.5", "", {}, {}},
    {{"LongerName"}, "com.tarlo.PowerControl.Consumer2", ":1.5", "", {}, {}},
    {{"ShorterName"}, "com.tarlo.PowerControl", ":1.5", "", {}, {}},
    {{"LowerCaseName"}, "com.tarlo.powercontrol.consumer", ":1.5", "", {}, {}},
    {{"EmptyName"}, "", ":1.5", "", {}, {}},
    {{"UniqueName"}, ":1.5", ":1.5", "", {}, {}},
};

INSTANTIATE_TEST_SUITE_P(Changes, PowerConsumerOwnerTest, testing::ValuesIn(owner_cases),
                         support::case_name<OwnerCase>);

TEST_F(PowerConsumerTest, ReadsAnOwnerChangeUnlessTheResultIsNegative) {
    settle();
    const std::string line = "2 NameOwnerChanged failed to parse message: ";
    const auto signal = [this](const char* types, auto... values) {
        return messages.signal("/a", "org.freedesktop.DBus", "NameOwnerChanged", types, values...);
    };
    const Journal unreadable{line + "No such device or address", "returns -6"};
    EXPECT_EQ(deliver(bus.sending(1), signal("")), unreadable);
    EXPECT_EQ(deliver(bus.sending(1), signal("ss", controller, ":1.5")), unreadable);
    bus.change_results(support::MessageFunction::read, {-EPERM, 0});
    EXPECT_EQ(deliver(bus.sending(1), signal("sss", controller, ":1.5", "")),
              (Journal{line + "Operation not permitted", "returns -1"}));
    EXPECT_EQ(run(), Journal{});
    lose_controller();
}

TEST_F(PowerConsumerTest, DoesNotLookAtTheErrorArgumentOfAnOwnerChange) {
    settle();
    EXPECT_EQ(
        deliver(bus.sending(1), messages.owner_change(controller, ":1.5", ""), support::denied),
        (Journal{owner_line(":1.5", ""), fired}));
}

TEST_F(PowerConsumerTest, GivesItsSlotsUpAndUnregistersWithEachStop) {
    enlist();
    EXPECT_EQ(stop(), (Journal{"release #1 match", "release #2 Register", deregistration}));
    EXPECT_FALSE(match_held());
    EXPECT_FALSE(call_pending());
    EXPECT_EQ(bus.last().bus, messages.bus());
    EXPECT_EQ(bus.last().slot_field, nullptr);
    EXPECT_EQ(bus.last().callback, nullptr);
    EXPECT_EQ(stop(), Journal{deregistration});
    EXPECT_EQ(destroy(), Journal{});
}

TEST_F(PowerConsumerTest, GivesUpItsCallAndThenItsMatchWhenDestroyed) {
    enlist();
    EXPECT_EQ(destroy(), (Journal{"release #2 Register", "release #1 match"}))
        << "only a stop unregisters";
}

TEST_F(PowerConsumerTest, SaysThatItCouldNotUnregister) {
    settle();
    bus.answer_next({-EPERM});
    EXPECT_EQ(stop(), (Journal{"release #1 match", deregistration,
                               "1 Failed to unregister power consumer: Operation not permitted"}));
}

TEST_F(PowerConsumerTest, InstallsTheMatchInItsFirstRunAlsoAfterAStopWithoutAConnection) {
    make();
    EXPECT_EQ(stop(), Journal{deregistration});
    EXPECT_EQ(bus.last().bus, nullptr);
    EXPECT_EQ(run(), (Journal{owner_match, registration}));
}

/// sd-bus itself says that there is no connection.
TEST(PowerConsumerWithoutABusTest, FailsToUnregister) {
    support::LogRecorder log;
    PowerConsumer consumer("consumer", {{"power", 1.0}});
    consumer.stop();
    EXPECT_EQ(log.take(),
              (Journal{announcement, "1 Failed to unregister power consumer: Invalid argument"}));
}

TEST_F(PowerConsumerTest, IsStillWokenByItsCallbacksOnceItIsStopped) {
    enlist();
    EXPECT_EQ(stop().size(), 3U);
    EXPECT_EQ(deliver(bus.sending(2), messages.reply("")), wake_up);
    lose_controller();
    EXPECT_EQ(set_power(4.0), granted);
}

TEST_F(PowerConsumerTest, GoesOnWithoutTheMatchWhenItIsRunAfterAStop) {
    enlist();
    EXPECT_EQ(stop().size(), 3U);
    EXPECT_EQ(run(), Journal{registration}) << "the registration was never answered";
    answer();
    EXPECT_EQ(run_woken(), (Journal{nothing_granted, request}));
    answer();
    EXPECT_EQ(stop(), Journal{deregistration});
    EXPECT_EQ(run(), Journal{}) << "the flags outlive the stop";
}

}  // namespace
