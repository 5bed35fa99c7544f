#include "tests/unit/temperature/temperature_reader_fixture.hpp"

namespace {

using namespace reader_test;

using Step = StepCase<TemperatureReader>;

const Step steps[] = {
    {"Match", 3, change_match,
     "2 Failed to add DBus signal callback: ", &blocks::LayoutProbe::match_slot_field},
    {"Lookup", 4, lookup,
     "1 Failed to call GetTemperatureIdFromName: ", &blocks::LayoutProbe::call_slot_field},
    {"Registration", 5, registration,
     "1 Failed to call method RegisterForTemperatureChangeSignal: ",
     &blocks::LayoutProbe::call_slot_field},
    {"Reading", 6, reading_call, "1 Failed to call method RegisterForTemperatureChangeSignal: ",
     &blocks::LayoutProbe::call_slot_field},
};

class TemperatureReaderStepTest : public TemperatureReaderTest,
                                  public testing::WithParamInterface<Step> {
  protected:
    void SetUp() override {
        make();
        reach(GetParam().number);
        EXPECT_TRUE(woken());
        EXPECT_EQ(bus.count(), GetParam().number - 1);
    }
};

TEST_P(TemperatureReaderStepTest, IsTakenOnceOnTheConnectionOfThatMoment) {
    expect_taken_once(GetParam());
}

TEST_P(TemperatureReaderStepTest, IsTakenAgainInTheNextRunWhenItCouldNotBeSent) {
    expect_taken_again(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Steps, TemperatureReaderStepTest, testing::ValuesIn(steps),
                         case_name<Step>);

TEST_F(TemperatureReaderTest, AsksForNothingMoreOnceItHasAReading) {
    make();
    register_reader();
    fetch(0.0);
    for (int again = 0; again < 3; ++again)
        EXPECT_EQ(run(), Journal{});
    EXPECT_TRUE(woken()) << "by the answer";
    EXPECT_FALSE(woken());
}

TEST_F(TemperatureReaderTest, DoesNotFetchAReadingThatASignalHasBroughtAlready) {
    make();
    register_reader();
    notify(0.0);
    EXPECT_EQ(run(), Journal{});
}

TEST_F(TemperatureReaderTest, PassesAnySensorNameOn) {
    make({{"sensor_name", {""}}});
    reach(4);
    EXPECT_EQ(run(), (Journal{controller_call("GetTemperatureIdFromName(s \"\")")}));
}

TEST_F(TemperatureReaderTest, AsksAgainAfterANegativeId) {
    make();
    reach(4);
    look_up(-2);
    look_up();
    enlist(-1);
    enlist();
    EXPECT_EQ(run(), (Journal{reading_call}));
}

TEST_F(TemperatureReaderTest, TakesIdsOfZero) {
    make();
    reach(4);
    look_up(0);
    exchange(controller_call("RegisterForTemperatureChangeSignal(i 0, d 0.5)"),
             messages.reply("i", 0));
    EXPECT_EQ(run(), (Journal{controller_call("GetTemperature(i 0, s \"main\")")}));
}

TEST_F(TemperatureReaderTest, KnowsNeitherItsSensorNorARegistrationFromItsConstructionOn) {
    make();
    const auto work = [this] { return effects_of([this] { block().run_with_service(); }); };
    EXPECT_EQ(work(), (Journal{change_match}));
    EXPECT_EQ(install(bus.last(), messages.reply("")), wake_up);
    EXPECT_EQ(work(), (Journal{lookup}));
    answer(messages.reply("i", 3));
    EXPECT_EQ(work(), (Journal{registration}));
}

/// A threshold, and its text in the registration.
struct ThresholdCase : NamedCase {
    double threshold;
    std::string text;
};

class TemperatureReaderThresholdTest : public TemperatureReaderTest,
                                       public testing::WithParamInterface<ThresholdCase> {};

TEST_P(TemperatureReaderThresholdTest, IsPassedOnAsItIs) {
    make({{"delta_chg", GetParam().threshold}});
    (void)log.take();
    reach(5);
    EXPECT_EQ(run(), (Journal{controller_call("RegisterForTemperatureChangeSignal(i 3, d " +
                                              GetParam().text + ")")}));
}

const ThresholdCase thresholds[] = {
    {"Negative", -1.5, "-1.5"}, {"Zero", 0.0, "0"}, {"NotANumber", not_a_number, "nan"}};

INSTANTIATE_TEST_SUITE_P(Thresholds, TemperatureReaderThresholdTest, testing::ValuesIn(thresholds),
                         case_name<ThresholdCase>);

}  // namespace
