#include "tests/support/configuration_recorder.hpp"
#include "tests/unit/temperature/temperature_monitor_fixture.hpp"

namespace {

using namespace monitor_test;
using Strings = std::vector<std::string>;

TEST_F(TemperatureMonitorTest, TakesTheStepsOfItsConstructionInThisOrder) {
    foresee(20.0);
    EXPECT_EQ(effects_of([this] {
                  build("monitor", observed({{"sensor_name", {"main"}}, {"other", true}}));
              }),
              (Journal{"event event_port", "output temperature_ok_out", "string sensor_name",
                       "float low_on_temp or a default", "float low_off_temp or a default",
                       "float high_on_temp or a default", "float high_off_temp or a default",
                       id_lookup, "release the reply to GetTemperatureIdFromName", first_reading,
                       "publish temperature_ok_out = true", "fire event_port",
                       "release the reply to GetTemperature"}));
    EXPECT_TRUE(recorders.debug.registrations().empty());
    EXPECT_EQ(LayoutProbe::registering_index(block()), 0U);
}

TEST_F(TemperatureMonitorTest, HasOneOutputAnEventAndNoInput) {
    make();
    EXPECT_EQ(block().get_outport_names(), (Journal{"temperature_ok_out"}));
    EXPECT_EQ(output<bool>("temperature_ok_out").datatype().path(), "/prefix/well-known.b/bool");
    EXPECT_EQ(block().get_inport_names(), Journal{});
    EXPECT_EQ(Fenwa::HostAccess::eventport_names(block()), (Journal{"event_port"}));
    EXPECT_EQ(block().get_name(), "monitor");
    EXPECT_TRUE(Fenwa::HostAccess::exported_objects(block()).empty());
}

/// Settings of a monitor, and the limits that it registers.
struct LimitsCase : NamedCase {
    Fenwa::BlockConfiguration settings;
    Strings limits;
};

class LimitsTest : public TemperatureMonitorTest, public testing::WithParamInterface<LimitsCase> {};

TEST_P(LimitsTest, AreRegisteredEachWithItsFlag) {
    const bool flags[] = {true, false, false, true};
    make(20.0, GetParam().settings);
    install_matches();
    for (std::size_t limit = 0; limit < 4; ++limit) {
        EXPECT_EQ(run(), (Journal{registration(GetParam().limits.at(limit), flags[limit])}));
        answer_registration(usual_ids.at(limit));
    }
}

const LimitsCase limits_cases[] = {
    {"FarFromAnyTemperatureByDefault", {}, {"-998", "998", "-1000", "1000"}},
    {"EachFromItsOwnKey",
     {{"low_on_temp", 5.5}, {"low_off_temp", -2.25}, {"high_on_temp", 60.0}, {"high_off_temp", 7}},
     {"5.5", "60", "-2.25", "7"}},
    {"TheOthersByDefault", {{"low_off_temp", -10}}, {"-998", "998", "-10", "1000"}},
    {"WidenedFromFloats",
     {{"low_on_temp", 36.6},
      {"high_on_temp", 0.1},
      {"low_off_temp", 1e300},
      {"high_off_temp", not_a_number}},
     {"36.599998474121094", "0.10000000149011612", "inf", "nan"}},
};

INSTANTIATE_TEST_SUITE_P(Limits, LimitsTest, testing::ValuesIn(limits_cases),
                         case_name<LimitsCase>);

TEST_F(TemperatureMonitorTest, NeedsASensorNameAndValuesOfTheRightTypeBeforeItAsksTheController) {
    expect_refused({{"low_on_temp", 5}}, "sensor_name", true);
    expect_refused({{"sensor_name", 5}}, "sensor_name", false);
    for (const char* key : {"low_on_temp", "low_off_temp", "high_on_temp", "high_off_temp"}) {
        expect_refused({{"sensor_name", {"main"}}, {key, true}}, key, false);
        expect_refused({{"sensor_name", {"main"}}, {key, {"hot"}}}, key, false);
    }
}

TEST_F(TemperatureMonitorTest, PassesAnySensorNameOn) {
    recorders.tools.reply_next(messages.reply("i", -7));
    recorders.tools.reply_next(messages.reply("d", 20.0));
    EXPECT_EQ(construct({{"sensor_name", {""}}}),
              (Journal{"blocking " + controller_call("GetTemperatureIdFromName(s \"\")"),
                       "blocking " + controller_call("GetTemperature(i -7, s \"\")"),
                       "publish temperature_ok_out = true"}));
}

Settings settings_with(bool verdict) {
    return {{"temperature_ok", verdict},
            {"termination_cfg.inports", Strings{"temp_monitor_in"}},
            {"termination_cfg.types", Strings{"/prefix/well-known.b/bool"}},
            {"termination_cfg.temp_monitor_in_def", verdict}};
}

TEST_F(TemperatureMonitorTest, ReportsItsVerdictAndTheInputThatIsTerminated) {
    settle();
    EXPECT_EQ(settings(), settings_with(true));
    cross(low_off);
    EXPECT_EQ(settings(), settings_with(true)) << "signals are judged in a run";
    EXPECT_EQ(run(), turned_off);
    EXPECT_EQ(settings(), settings_with(false));
    cross(low_on);
    EXPECT_EQ(run(), turned_on);
    EXPECT_EQ(settings(), settings_with(true));
}

TEST_F(TemperatureMonitorTest, DoesNotLookAtTheConfigurationThatSetupIsGiven) {
    make();
    const auto recorder = std::make_shared<ConfigurationRecorder>();
    EXPECT_EQ(settings_of(block().setup(
                  Fenwa::ConfigurationAccess::observed({{"temperature_ok", false}}, recorder))),
              settings_with(true));
    EXPECT_EQ(recorder->reads, Journal{});
}

}  // namespace
