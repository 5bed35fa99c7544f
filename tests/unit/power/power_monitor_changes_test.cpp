#include <cerrno>

#include "tests/unit/power/power_monitor_fixture.hpp"

namespace {

using namespace monitor_test;
using support::MakeMessage;
using support::MessageFunction;

using Results = std::vector<std::optional<int>>;

/// A signal, the power that is known after it, where it was 4.0 of the 5.0 that is requested, and
/// the signal's effects. The calls of one function of sd-bus may end otherwise than they really
/// would.
struct ChangeCase : support::NamedCase {
    MakeMessage signal;
    double power = 4.0;
    Journal effects = taken;
    MessageFunction function = MessageFunction::read;
    Results results = {};
};

class PowerMonitorChangeTest : public PowerMonitorTest,
                               public testing::WithParamInterface<ChangeCase> {};

TEST_P(PowerMonitorChangeTest, IsTakenOrRefused) {
    const ChangeCase& change = GetParam();
    watch(4.0);
    bus.make_up(change.function, change.results);
    EXPECT_EQ(deliver(bus.sending(1), change.signal(messages)), change.effects);
    EXPECT_EQ(testing::PrintToString(received()), testing::PrintToString(change.power));
    EXPECT_EQ(run(), Journal{change.power >= 5.0 ? enough : too_little});
}

/// The signal is given up with this line: nothing is answered, and nobody woken.
Journal refused(const std::string& line) {
    return {"1 " + line + "\n", "returns -1"};
}
const Journal no_container = refused("Failed to enter container");

const ChangeCase change_cases[] = {
    {{"More"}, change_of(1, "PowerReceived", "d", 6.0), 6.0},
    {{"Less"}, change_of(1, "PowerReceived", "d", 3.9), 3.9},
    {{"Same"}, change_of(1, "PowerReceived", "d", 4.0), 4.0},
    {{"Infinity"}, change_of(1, "PowerReceived", "d", infinity), infinity},
    {{"NotANumber"}, change_of(1, "PowerReceived", "d", not_a_number), not_a_number},
    {{"NoProperty"}, change_of(0)},
    {{"OtherProperty"}, change_of(1, "PowerAvailable", "d", 9.0)},
    {{"NearlyItsName"}, change_of(2, "powerreceived", "d", 9.0, "PowerReceived2", "d", 9.0)},
    {{"NoName"}, change_of(1, "", "d", 9.0)},
    {{"BehindPropertiesOfAnyType"},
     change_of(9, "A", "b", 1, "B", "s", "text", "C", "as", 2U, "x", "y", "D", "a{sv}", 1U, "key",
               "i", 5, "E", "(ii)", 1, 2, "F", "v", "d", 9.0, "G", "y", 1, "H", "a(s)", 0U,
               "PowerReceived", "d", 6.0),
     6.0},
    {{"FirstOfTwo"},
     change_of(3, "A", "i", 1, "PowerReceived", "d", 6.0, "PowerReceived", "d", 9.0),
     6.0},
    {{"BeforeAnother"}, change_of(2, "PowerReceived", "d", 7.0, "B", "i", 1), 7.0},
    {{"Integer"}, change_of(1, "PowerReceived", "i", 6)},
    {{"Text"}, change_of(1, "PowerReceived", "s", "much")},
    {{"Variant"}, change_of(1, "PowerReceived", "v", "d", 6.0)},
    {{"IntegerBeforeAValue"}, change_of(2, "PowerReceived", "i", 6, "PowerReceived", "d", 9.0)},
    {{"OtherInterface"}, signal_of("sa{sv}as", "a.b", 1U, "PowerReceived", "d", 6.0, 0U), 6.0},
    {{"Invalidation"}, signal_of("sa{sv}as", "", 0U, 1U, "PowerReceived")},
    {{"NothingBehindTheArray"}, signal_of("sa{sv}", "", 1U, "PowerReceived", "d", 7.0), 7.0},
    {{"OtherBehindTheArray"}, signal_of("sa{sv}i", "", 1U, "PowerReceived", "d", 8.0, 5), 8.0},
    {{"EmptyBody"}, signal_of(""), 4.0, no_container},
    {{"NumberAlone"}, signal_of("i", 5), 4.0, no_container},
    {{"TextAlone"}, signal_of("s", "com.tarlo.PowerControl.Status"), 4.0, no_container},
    {{"NoArray"}, signal_of("sd", "PowerReceived", 6.0), 4.0, no_container},
    {{"ArrayAlone"}, signal_of("a{sv}", 1U, "PowerReceived", "d", 6.0), 4.0, no_container},
    {{"OtherArray"}, signal_of("sas", "", 0U), 4.0, no_container},
    {{"Texts"}, signal_of("sa{ss}", "", 1U, "PowerReceived", "6.0"), 4.0, no_container},
};

INSTANTIATE_TEST_SUITE_P(Bodies, PowerMonitorChangeTest, testing::ValuesIn(change_cases),
                         support::case_name<ChangeCase>);

constexpr auto skip = MessageFunction::skip;
constexpr auto enter = MessageFunction::enter_container;
constexpr auto read = MessageFunction::read;
constexpr auto leave = MessageFunction::exit_container;
constexpr std::nullopt_t real = std::nullopt;

const MakeMessage two = change_of(2, "A", "i", 1, "PowerReceived", "d", 6.0);
const Journal no_name = refused("Failed to read property name");
const Journal not_skipped = refused("Failed to skip message: Operation not permitted");
const Journal not_left = refused("Failed to exit container for: A");
const Journal no_value = refused("Failed to read value of PowerReceived: Success");
const Journal bad_value = refused("Failed to read value of PowerReceived: Bad message");
const Journal value_not_left = answered({"1 Failed to exit container for: PowerReceived\n", fired});

const ChangeCase step_cases[] = {
    {{"InterfaceNotSkipped"}, two, 4.0, no_container, skip, {-EBADMSG}},
    {{"NoArray"}, two, 4.0, no_container, enter, {0}},
    {{"ArrayNotEntered"}, two, 4.0, no_container, enter, {-EBADMSG}},
    {{"NoEntry"}, two, 4.0, taken, enter, {real, 0}},
    {{"EntryNotEntered"}, two, 4.0, taken, enter, {real, -EBADMSG}},
    {{"NoName"}, two, 4.0, no_name, read, {0}},
    {{"NameNotRead"}, two, 4.0, no_name, read, {-EBADMSG}},
    {{"OtherValueNotSkipped"}, two, 4.0, not_skipped, skip, {real, -EPERM}},
    {{"NothingSkipped"}, two, 4.0, not_left, skip, {real, 0}},
    {{"EntryNotLeft"}, two, 4.0, not_left, leave, {-EPERM}},
    {{"EntryOnlySeeminglyLeft"}, two, 4.0, taken, leave, {0}},
    {{"SecondNameNotRead"}, two, 4.0, no_name, read, {real, -EBADMSG}},
    {{"NoVariant"}, two, 4.0, taken, enter, {real, real, real, 0}},
    {{"VariantNotEntered"}, two, 4.0, taken, enter, {real, real, real, -EBADMSG}},
    {{"NoValue"}, two, 4.0, no_value, read, {real, real, 0}},
    {{"ValueNotRead"}, two, 4.0, bad_value, read, {real, real, -EBADMSG}},
    {{"VariantNotLeft"}, two, 6.0, value_not_left, leave, {real, -EPERM}},
    {{"VariantOnlySeeminglyLeft"}, two, 6.0, taken, leave, {real, 0}},
    {{"AnotherEntryInsideTheOpenOne"}, two, 6.0, no_name, enter, {real, real, real, real, 1}},
};

INSTANTIATE_TEST_SUITE_P(Steps, PowerMonitorChangeTest, testing::ValuesIn(step_cases),
                         support::case_name<ChangeCase>);

TEST_F(PowerMonitorTest, TakesASkipOfZeroForDoneAndNothingBehindOneThatFails) {
    watch(4.0);
    bus.change_results(skip, {0, -EPERM});
    EXPECT_EQ(change(6.0), taken);
    EXPECT_EQ(change(7.0), no_container);
    EXPECT_EQ(received(), 6.0);
}

TEST_F(PowerMonitorTest, GivesUpASignalWithASetErrorArgumentUnread) {
    watch(4.0);
    (void)readings();
    const std::string line = "1 Failed to get match for PowerReceived: ";
    EXPECT_EQ(change(6.0, support::denied), (Journal{line + "not you", "returns -1"}));
    EXPECT_EQ(change(6.0, support::silent), (Journal{line, "returns -1"}));
    EXPECT_EQ(readings(), Journal{});
    EXPECT_EQ(received(), 4.0);
}

TEST_F(PowerMonitorTest, RecordsAChangeBeforeItLeavesItsContainerAndIsWoken) {
    watch(4.0);
    remark([this] { return received(); });
    bus.make_up(leave, {-EPERM});
    EXPECT_EQ(change(6.0), (Journal{"1 Failed to exit container for: PowerReceived\n | 6",
                                    fired + " | 6", answer + " | 6", "returns -22"}));
}

TEST_F(PowerMonitorTest, ReadsNothingBehindItsPropertyAndNotWhatIsInvalidated) {
    watch(4.0);
    (void)readings();
    (void)deliver(bus.sending(1), change_of(2, "PowerReceived", "d", 6.0, "B", "i", 1)(messages));
    EXPECT_EQ(readings(),
              (Journal{"skip", "enter", "enter", "read", "enter", "read", "exit", "enter"}));
    (void)deliver(bus.sending(1), change_of(1, "B", "i", 1)(messages));
    EXPECT_EQ(readings(), (Journal{"skip", "enter", "enter", "read", "skip", "exit", "enter"}));
}

TEST_F(PowerMonitorTest, TakesChangesWithoutCountingThemAsAnswers) {
    make(5.0);
    EXPECT_EQ(run(), (Journal{change_match, enough}));
    EXPECT_EQ(change(4.0), taken);
    EXPECT_EQ(run(), (Journal{"release #1 match", change_match, too_little}));
    EXPECT_EQ(install(bus.last(), messages.reply("")), taken);
    EXPECT_EQ(run(), (Journal{query, too_little}));
    EXPECT_EQ(deliver(bus.last(), messages.reply(""), support::denied).size(), 4U);
    EXPECT_EQ(change(6.0), taken);
    EXPECT_EQ(failures(), 1);
    EXPECT_EQ(run(), (Journal{"release #3 Get", query, enough})) << "a change makes it ask again";
}

TEST_F(PowerMonitorTest, IsNotWokenByBrokenOrOtherChangesOnceItIsStopped) {
    watch(4.0);
    EXPECT_EQ(stop().size(), 2U);
    EXPECT_EQ(deliver(bus.sending(1), change_of(1, "A", "i", 1)(messages)), answered());
    EXPECT_EQ(deliver(bus.sending(1), signal_of("i", 5)(messages)), no_container);
}

}  // namespace
