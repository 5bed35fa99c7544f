#include <cerrno>
#include <ostream>

#include "tests/unit/power/power_monitor_fixture.hpp"

namespace {

using namespace monitor_test;
using support::MessageFunction;

using support::denied;
constexpr sd_bus_error silent =
    SD_BUS_ERROR_MAKE_CONST("org.freedesktop.DBus.Error.NoReply", nullptr);

/// Delivers PropertiesChanged signals to a monitor that watches, with 4.0 received of the 5.0 that
/// it needs.
class PowerMonitorChangeTest : public PowerMonitorTest {
  protected:
    void SetUp() override {
        make();
        watch(4.0);
    }

    /// The signal is taken: the block is woken, and then knows of this much power.
    void expect_taken(sd_bus_message* signal, double power) {
        deliver(bus.sending(1), signal);
        EXPECT_TRUE(monitor->woken());
        EXPECT_EQ(received(), power);
        EXPECT_EQ(outcome(), power >= 5.0) << "every change is published";
        EXPECT_EQ(bus.take_journal(), Journal{});
    }

    /// The signal is given up with this line: nothing is answered, and nobody woken.
    void expect_refused(sd_bus_message* signal, const std::string& line) {
        EXPECT_EQ(bus.sending(1).deliver(signal), -1);
        EXPECT_EQ(log.take(), (Lines{line}));
        EXPECT_EQ(bus.take_journal(), Journal{});
        EXPECT_FALSE(monitor->woken());
    }
};

TEST_F(PowerMonitorChangeTest, TakesTheNewValue) {
    expect_taken(change(1, "PowerReceived", "d", 6.0), 6.0);
    expect_taken(change(1, "PowerReceived", "d", 4.999), 4.999);
    expect_taken(change(1, "PowerReceived", "d", 5.0), 5.0);
    expect_taken(change(1, "PowerReceived", "d", 5.0), 5.0);
    EXPECT_EQ(log.take(), Lines{});
}

TEST_F(PowerMonitorChangeTest, TakesNotANumberForTooLittle) {
    deliver(bus.sending(1), change(1, "PowerReceived", "d", infinity));
    EXPECT_EQ(outcome(), true);
    deliver(bus.sending(1), change(1, "PowerReceived", "d", not_a_number));
    EXPECT_EQ(outcome(), false);
}

TEST_F(PowerMonitorChangeTest, PublishesTheUnchangedOutcomeWhenItsPropertyIsNotAmongThem) {
    expect_taken(change(0), 4.0);
    expect_taken(change(1, "PowerAvailable", "d", 9.0), 4.0);
    expect_taken(change(2, "powerreceived", "d", 9.0, "PowerReceived2", "d", 9.0), 4.0);
    expect_taken(change(1, "", "d", 9.0), 4.0);
}

TEST_F(PowerMonitorChangeTest, PassesPropertiesOfAnyTypeOver) {
    expect_taken(change(9, "A", "b", 1, "B", "s", "text", "C", "as", 2U, "x", "y", "D", "a{sv}", 1U,
                        "key", "i", 5, "E", "(ii)", 1, 2, "F", "v", "d", 9.0, "G", "y", 1, "H",
                        "a(s)", 0U, "PowerReceived", "d", 6.0),
                 6.0);
}

TEST_F(PowerMonitorChangeTest, DoesNotLookBehindItsProperty) {
    expect_taken(change(3, "A", "i", 1, "PowerReceived", "d", 6.0, "PowerReceived", "d", 9.0), 6.0);
    expect_taken(change(2, "PowerReceived", "d", 7.0, "B", "i", 1), 7.0);
    expect_taken(change(2, "A", "i", 1, "PowerReceived", "d", 8.0), 8.0);
}

TEST_F(PowerMonitorChangeTest, PassesAValueOfAnotherTypeOverAndEverythingBehindIt) {
    expect_taken(change(1, "PowerReceived", "i", 6), 4.0);
    expect_taken(change(1, "PowerReceived", "s", "much"), 4.0);
    expect_taken(change(1, "PowerReceived", "v", "d", 6.0), 4.0);
    expect_taken(change(2, "PowerReceived", "i", 6, "PowerReceived", "d", 9.0), 4.0);
}

TEST_F(PowerMonitorChangeTest, LooksNeitherAtTheInterfaceNorAtTheInvalidatedProperties) {
    expect_taken(signal("sa{sv}as", "com.example.Other", 1U, "PowerReceived", "d", 6.0, 0U), 6.0);
    expect_taken(signal("sa{sv}as", "", 0U, 1U, "PowerReceived"), 6.0);
    expect_taken(signal("sa{sv}", "", 1U, "PowerReceived", "d", 7.0), 7.0);
    expect_taken(signal("sa{sv}i", "", 1U, "PowerReceived", "d", 8.0, 5), 8.0);
}

TEST_F(PowerMonitorChangeTest, GivesUpASignalWithASetErrorArgument) {
    EXPECT_EQ(bus.sending(1).deliver(change(1, "PowerReceived", "d", 6.0), denied), -1);
    EXPECT_EQ(bus.sending(1).deliver(change(1, "PowerReceived", "d", 6.0), silent), -1);
    EXPECT_EQ(log.take(), (Lines{"1 Failed to get match for PowerReceived: not you",
                                 "1 Failed to get match for PowerReceived: "}));
    EXPECT_EQ(bus.take_journal(), Journal{});
    EXPECT_FALSE(monitor->woken());
    EXPECT_EQ(received(), 4.0);
}

TEST_F(PowerMonitorChangeTest, GivesUpASignalWithAnotherBody) {
    const std::string line = "1 Failed to enter container\n";
    expect_refused(signal(""), line);
    expect_refused(signal("i", 5), line);
    expect_refused(signal("s", "com.tarlo.PowerControl.Status"), line);
    expect_refused(signal("sd", "PowerReceived", 6.0), line);
    expect_refused(signal("a{sv}", 1U, "PowerReceived", "d", 6.0), line);
    expect_refused(signal("sas", "", 0U), line);
    expect_refused(signal("sa{ss}", "", 1U, "PowerReceived", "6.0"), line);
    EXPECT_EQ(received(), 4.0);
}

using Results = std::vector<std::optional<int>>;
constexpr std::nullopt_t real = std::nullopt;

/// One function of sd-bus that ends otherwise than it really would while this signal is read:
/// A = 1, PowerReceived = 6.0.
struct StepCase {
    const char* name;
    MessageFunction function;
    bool refused;
    double power;     ///< known to the block afterwards
    Results results;  ///< of the function's calls, one each
    Lines lines;
};

void PrintTo(const StepCase& step, std::ostream* out) {
    *out << step.name;
}

class PowerMonitorStepTest : public PowerMonitorChangeTest,
                             public testing::WithParamInterface<StepCase> {};

TEST_P(PowerMonitorStepTest, EndsTheSignal) {
    const auto signal = change(2, "A", "i", 1, "PowerReceived", "d", 6.0);
    bus.make_up(GetParam().function, GetParam().results);
    if (GetParam().refused) {
        expect_refused(signal, GetParam().lines.at(0));
        EXPECT_EQ(received(), GetParam().power);
    } else {
        expect_taken(signal, GetParam().power);
        EXPECT_EQ(log.take(), GetParam().lines);
    }
}

const Lines no_container{"1 Failed to enter container\n"};
const Lines no_name{"1 Failed to read property name\n"};
const Lines not_left{"1 Failed to exit container for: A\n"};
const Lines value_not_left{"1 Failed to exit container for: PowerReceived\n"};

const StepCase step_cases[] = {
    {"InterfaceNotSkipped", MessageFunction::skip, true, 4.0, {-EBADMSG}, no_container},
    {"NoArray", MessageFunction::enter_container, true, 4.0, {0}, no_container},
    {"ArrayNotEntered", MessageFunction::enter_container, true, 4.0, {-EBADMSG}, no_container},
    {"NoEntry", MessageFunction::enter_container, false, 4.0, {real, 0}, {}},
    {"EntryNotEntered", MessageFunction::enter_container, false, 4.0, {real, -EBADMSG}, {}},
    {"NoName", MessageFunction::read, true, 4.0, {0}, no_name},
    {"NameNotRead", MessageFunction::read, true, 4.0, {-EBADMSG}, no_name},
    {"OtherValueNotSkipped",
     MessageFunction::skip,
     true,
     4.0,
     {real, -EPERM},
     {"1 Failed to skip message: Operation not permitted\n"}},
    {"NothingSkipped", MessageFunction::skip, true, 4.0, {real, 0}, not_left},
    {"EntryNotLeft", MessageFunction::exit_container, true, 4.0, {-EPERM}, not_left},
    {"EntryOnlySeeminglyLeft", MessageFunction::exit_container, false, 4.0, {0}, {}},
    {"SecondNameNotRead", MessageFunction::read, true, 4.0, {real, -EBADMSG}, no_name},
    {"NoVariant", MessageFunction::enter_container, false, 4.0, {real, real, real, 0}, {}},
    {"VariantNotEntered",
     MessageFunction::enter_container,
     false,
     4.0,
     {real, real, real, -EBADMSG},
     {}},
    {"NoValue",
     MessageFunction::read,
     true,
     4.0,
     {real, real, 0},
     {"1 Failed to read value of PowerReceived: Success\n"}},
    {"ValueNotRead",
     MessageFunction::read,
     true,
     4.0,
     {real, real, -EBADMSG},
     {"1 Failed to read value of PowerReceived: Bad message\n"}},
    {"VariantNotLeft", MessageFunction::exit_container, false, 6.0, {real, -EPERM}, value_not_left},
    {"VariantOnlySeeminglyLeft", MessageFunction::exit_container, false, 6.0, {real, 0}, {}},
    {"AnotherEntryInsideTheOpenOne",
     MessageFunction::enter_container,
     true,
     6.0,
     {real, real, real, real, 1},
     no_name},
};

INSTANTIATE_TEST_SUITE_P(Steps, PowerMonitorStepTest, testing::ValuesIn(step_cases),
                         [](const auto& of) { return std::string(of.param.name); });

TEST_F(PowerMonitorTest, TakesASkipThatComesToZeroForDone) {
    make(5.0);
    EXPECT_EQ(run(), (Journal{change_match}));
    bus.change_results(MessageFunction::skip, {0});
    deliver(bus.sending(1), change(1, "PowerReceived", "d", 4.0));
    EXPECT_EQ(received(), 4.0);
}

TEST_F(PowerMonitorChangeTest, TakesNothingBehindASkipThatFails) {
    bus.change_results(MessageFunction::skip, {-EPERM});
    expect_refused(change(1, "PowerReceived", "d", 4.0), "1 Failed to enter container\n");
}

TEST_F(PowerMonitorTest, TakesChangesWithoutCountingThemAsAnswers) {
    make(5.0);
    ask();
    deliver(bus.sending(2), messages.reply(""), denied);
    EXPECT_EQ(log.take().size(), 1U);
    EXPECT_TRUE(monitor->woken());
    deliver(bus.sending(1), change(1, "PowerReceived", "d", 4.0));
    EXPECT_TRUE(monitor->woken());
    EXPECT_EQ(failures(), 1);
    EXPECT_EQ(run(), (Journal{"release #2 Get", query})) << "a change makes it ask again";
    EXPECT_EQ(published(), false);
}

TEST_F(PowerMonitorTest, TakesChangesBeforeTheMatchCountsAsInstalled) {
    make(5.0);
    EXPECT_EQ(run(), (Journal{change_match}));
    deliver(bus.sending(1), change(1, "PowerReceived", "d", 4.0));
    EXPECT_TRUE(monitor->woken());
    EXPECT_EQ(received(), 4.0);
    EXPECT_EQ(run(), (Journal{"release #1 match", change_match}));
}

TEST_F(PowerMonitorChangeTest, IsNotWokenByBrokenOrOtherChangesOnceItIsStopped) {
    (*monitor)->stop();
    (void)bus.take_journal();
    deliver(bus.sending(1), change(1, "A", "i", 1));
    expect_refused(signal("i", 5), "1 Failed to enter container\n");
    EXPECT_FALSE(monitor->woken());
}

}  // namespace
