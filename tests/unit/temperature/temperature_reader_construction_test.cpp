#include <cmath>

#include "tests/unit/temperature/temperature_reader_fixture.hpp"

namespace {

using namespace reader_test;
using Entry = Fenwa::BlockConfiguration::KeyValue;

const Entry name{"sensor_name", {"main"}};
const Entry threshold{"delta_chg", 0.5};

TEST_F(TemperatureReaderTest, TakesTheStepsOfItsConstructionInThisOrder) {
    const auto build_observed = [this](const Fenwa::BlockConfiguration& more) {
        const Fenwa::BlockConfiguration least{name, {"delta_chg", 0.0}};
        return effects_of([&] { build("reader", observed(least + more)); });
    };
    Journal steps{
        "event event_port",       "fire event_port",
        "output temperature_out", "bool fake.active",
        "fire event_port",        "register with the debug-data store",
        "end the registration",   "string sensor_name",
        "double delta_chg",       "2 Temperature reader disabled by delta_temperature = 0"};
    EXPECT_EQ(build_observed({}), steps);
    steps.insert(steps.begin() + 4, "double fake.value");
    EXPECT_EQ(build_observed({{"fake.active", true}}), steps);
}

TEST_F(TemperatureReaderTest, HasOneOutputAnEventAndNoInput) {
    make();
    EXPECT_EQ(block().get_outport_names(), (Journal{"temperature_out"}));
    EXPECT_EQ(block().get_inport_names(), Journal{});
    EXPECT_EQ(Fenwa::HostAccess::eventport_names(block()), (Journal{"event_port"}));
    const auto& port = output<double>("temperature_out");
    EXPECT_EQ(port.datatype().path(), "/prefix/well-known.d/double");
    EXPECT_EQ(port.value, 0.0);
    EXPECT_FALSE(std::signbit(port.value));
}

TEST_F(TemperatureReaderTest, KeepsTheGivenConfigurationOverItsDefaults) {
    make({{"delta_chg", 0.25}, {"fake.active", true}});
    EXPECT_EQ(settings_of(Fenwa::HostAccess::configuration(block())),
              (Settings{{"delta_chg", 0.25},
                        {"fake.active", true},
                        {"fake.value", 36.0},
                        {"sensor_name", std::vector<std::string>{"main"}}}));
}

TEST_F(TemperatureReaderTest, RegistersItsConfigurationWithTheDebugDataStoreOnceItHasItsPort) {
    make({{"delta_chg", 0.25}});
    ASSERT_EQ(recorders.debug.registrations().size(), 1U);
    const auto& registered = recorders.debug.registrations().front();
    EXPECT_EQ(registered.block, &block());
    EXPECT_EQ(registered.outports, (Journal{"temperature_out"}));
    EXPECT_EQ(registered.config, (Journal{"delta_chg=0.25", "fake.active=0", "fake.value=36",
                                          "sensor_name=1 strings"}));
    EXPECT_EQ(registered.extra, Journal{});
}

TEST_F(TemperatureReaderTest, NeedsAThresholdAlthoughItTellsTheDebugDataStoreADefault) {
    expect_refused({name}, "delta_chg", true);
    ASSERT_EQ(recorders.debug.registrations().size(), 1U);
    EXPECT_EQ(recorders.debug.registrations().front().config.front(), "delta_chg=1");
}

TEST_F(TemperatureReaderTest, NeedsASensorNameAndValuesOfTheRightType) {
    expect_refused({threshold}, "sensor_name", true);
    expect_refused({{"sensor_name", true}, threshold}, "sensor_name", false);
    expect_refused({name, {"delta_chg", true}}, "delta_chg", false);
    expect_refused({name, threshold, {"fake.active", 1.0}}, "fake.active", false);
    expect_refused({name, threshold, {"fake.active", true}, {"fake.value", {"hot"}}}, "fake.value",
                   false);
    // A fake value that is not asked for may be anything.
    EXPECT_NO_THROW(make({{"fake.value", {"hot"}}}));
}

TEST_F(TemperatureReaderTest, WarnsOfAThresholdOfZeroOrLess) {
    const auto warned = [this](const Entry& delta) {
        make({delta});
        return log.take();
    };
    const std::string line = "2 Temperature reader disabled by delta_temperature = ";
    for (const auto& [delta, text] : {std::pair{0.0, "0"},
                                      {-0.0, "-0"},
                                      {-1.0, "-1"},
                                      {-0.123456789, "-0.123457"},
                                      {-1e20, "-1e+20"},
                                      {-infinity, "-inf"}})
        EXPECT_EQ(warned({"delta_chg", delta}), (Lines{line + text}));
    EXPECT_EQ(warned({"delta_chg", -2}), (Lines{line + "-2"})) << "an integer is a threshold too";
    for (const double delta :
         {std::numeric_limits<double>::denorm_min(), 1.0, not_a_number, infinity})
        EXPECT_EQ(warned({"delta_chg", delta}), Lines{}) << delta;
}

}  // namespace
