#include "tests/support/configuration_recorder.hpp"
#include "tests/support/settings.hpp"
#include "tests/unit/temperature/temperature_monitor_fixture.hpp"

namespace {

using namespace monitor_test;
using support::Settings;
using Strings = std::vector<std::string>;

class TemperatureMonitorConstructionTest : public TemperatureMonitorTest {
  protected:
    /// The limits that the monitor registers, each with its flag.
    Journal registrations() {
        install_matches();
        Journal all;
        for (const std::int32_t id : usual_ids) {
            for (const std::string& sent : run())
                all.push_back(sent);
            answer_registration(id);
        }
        return all;
    }

    static Settings settings(bool verdict) {
        return {{"temperature_ok", verdict},
                {"termination_cfg.inports", Strings{"temp_monitor_in"}},
                {"termination_cfg.types", Strings{"/prefix/well-known.b/bool"}},
                {"termination_cfg.temp_monitor_in_def", verdict}};
    }
};

TEST_F(TemperatureMonitorConstructionTest, HasOneOutputAnEventAndNoInput) {
    make();
    EXPECT_EQ((*monitor)->get_outport_names(), (Journal{"temperature_ok_out"}));
    EXPECT_EQ(port().datatype().path(), "/prefix/well-known.b/bool");
    EXPECT_EQ((*monitor)->get_inport_names(), Journal{});
    EXPECT_EQ(Fenwa::HostAccess::eventport_names(**monitor), (Journal{"event_port"}));
    EXPECT_EQ((*monitor)->get_name(), "monitor");
    EXPECT_TRUE(Fenwa::HostAccess::exported_objects(**monitor).empty());
}

TEST_F(TemperatureMonitorConstructionTest, TellsTheDebugDataStoreNothing) {
    make();
    EXPECT_TRUE(recorders.debug.registrations().empty());
}

TEST_F(TemperatureMonitorConstructionTest, ReadsItsKeysOnceInThisOrder) {
    const auto recorder = std::make_shared<support::ConfigurationRecorder>();
    recorders.tools.reply_next(messages.reply("i", 3));
    recorders.tools.reply_next(messages.reply("d", 20.0));
    Journal sent_when_reading;
    recorder->on_each = [&](const std::string&) {
        for (const std::string& sent : bus.take_journal())
            sent_when_reading.push_back(sent);
    };
    monitor.emplace(recorders.tools, "monitor",
                    Fenwa::ConfigurationAccess::observed(
                        {{"sensor_name", {"main"}}, {"other", true}}, recorder));
    EXPECT_EQ(recorder->reads,
              (Journal{"string sensor_name", "float low_on_temp or a default",
                       "float low_off_temp or a default", "float high_on_temp or a default",
                       "float high_off_temp or a default"}));
    EXPECT_EQ(sent_when_reading, Journal{}) << "the controller is asked after all keys are read";
    EXPECT_EQ(bus.take_journal(), (Journal{id_lookup, first_reading}));
}

TEST_F(TemperatureMonitorConstructionTest, KeepsAllLimitsFarFromAnyTemperatureUnlessTold) {
    make();
    EXPECT_EQ(registrations(), (Journal{registration("-998", true), registration("998", false),
                                        registration("-1000", false), registration("1000", true)}));
}

TEST_F(TemperatureMonitorConstructionTest, TakesEachLimitFromItsOwnKey) {
    make(20.0, {{"low_on_temp", 5.5},
                {"low_off_temp", -2.25},
                {"high_on_temp", 60.0},
                {"high_off_temp", 70.5}});
    EXPECT_EQ(registrations(), (Journal{registration("5.5", true), registration("60", false),
                                        registration("-2.25", false), registration("70.5", true)}));
}

TEST_F(TemperatureMonitorConstructionTest, KeepsTheOtherDefaultsWhenOneLimitIsGiven) {
    make(20.0, {{"low_off_temp", -10}});
    EXPECT_EQ(registrations(), (Journal{registration("-998", true), registration("998", false),
                                        registration("-10", false), registration("1000", true)}));
}

TEST_F(TemperatureMonitorConstructionTest, WidensItsLimitsFromFloats) {
    make(20.0, {{"low_on_temp", 36.6},
                {"high_on_temp", 0.1},
                {"low_off_temp", 1e300},
                {"high_off_temp", not_a_number}});
    EXPECT_EQ(registrations(), (Journal{registration("36.599998474121094", true),
                                        registration("0.10000000149011612", false),
                                        registration("inf", false), registration("nan", true)}));
}

TEST_F(TemperatureMonitorConstructionTest, NeedsASensorName) {
    try {
        monitor.emplace(recorders.tools, "monitor", Fenwa::BlockConfiguration{{"low_on_temp", 5}});
        FAIL() << "built without a sensor name";
    } catch (const Fenwa::ConfigurationError& error) {
        EXPECT_EQ(error.key(), "sensor_name");
        EXPECT_TRUE(error.missing());
    }
}

TEST_F(TemperatureMonitorConstructionTest, RefusesValuesOfAnotherTypeBeforeItAsksTheController) {
    EXPECT_THROW(build({{"sensor_name", 5}}), Fenwa::ConfigurationError);
    for (const char* key : {"low_on_temp", "low_off_temp", "high_on_temp", "high_off_temp"}) {
        EXPECT_THROW(build({{key, true}}), Fenwa::ConfigurationError) << key;
        EXPECT_THROW(build({{key, {"hot"}}}), Fenwa::ConfigurationError) << key;
    }
}

TEST_F(TemperatureMonitorConstructionTest, PassesAnySensorNameOn) {
    recorders.tools.reply_next(messages.reply("i", -7));
    recorders.tools.reply_next(messages.reply("d", 20.0));
    build({{"sensor_name", {""}}});
    EXPECT_EQ(bus.take_journal(),
              (Journal{"blocking " + controller_call("GetTemperatureIdFromName(s \"\")"),
                       "blocking " + controller_call("GetTemperature(i -7, s \"\")")}));
}

TEST_F(TemperatureMonitorConstructionTest, ReportsItsVerdictAndTheInputThatIsTerminated) {
    make();
    EXPECT_EQ(support::settings_of((*monitor)->setup({})), settings(true));
    make(2000.0);
    EXPECT_EQ(support::settings_of((*monitor)->setup({})), settings(false));
}

TEST_F(TemperatureMonitorConstructionTest, DoesNotLookAtTheConfigurationThatSetupIsGiven) {
    make();
    const auto recorder = std::make_shared<support::ConfigurationRecorder>();
    const Fenwa::BlockConfiguration given{{"temperature_ok", false}};
    EXPECT_EQ(support::settings_of(
                  (*monitor)->setup(Fenwa::ConfigurationAccess::observed(given, recorder))),
              settings(true));
    EXPECT_EQ(recorder->reads, Journal{});
}

TEST_F(TemperatureMonitorConstructionTest, ReportsTheNewVerdictAfterAChange) {
    settle();
    cross(low_off);
    EXPECT_EQ(support::settings_of((*monitor)->setup({})), settings(true))
        << "signals are judged in a run";
    (void)run();
    EXPECT_EQ(support::settings_of((*monitor)->setup({})), settings(false));
    cross(low_on);
    (void)run();
    EXPECT_EQ(support::settings_of((*monitor)->setup({})), settings(true));
    EXPECT_EQ(log.take(), (Lines{set_false, set_true}));
}

TEST_F(TemperatureMonitorConstructionTest, WarnsOfEachNegativeResultOfItsTwoReads) {
    for (const std::vector<int>& results : {std::vector<int>{-EPERM, -EPERM}, {0, 0}}) {
        bus.change_results(support::MessageFunction::read, results);
        make();
    }
    const std::string line = "2 Failed to parse sensor id: Operation not permitted";
    EXPECT_EQ(log.take(), (Lines{line, line})) << "and of no result of zero";
}

TEST_F(TemperatureMonitorConstructionTest, JudgesMinus999WhereItCannotRead) {
    for (const auto& [limit, verdict_expected] : {std::pair{-998.5, false}, {-999.5, true}}) {
        recorders.tools.return_next();
        recorders.tools.return_next();
        build({{"low_off_temp", limit}});
        EXPECT_EQ(log.take().size(), 2U);
        EXPECT_EQ(bus.take_journal().size(), 2U);
        EXPECT_EQ(verdict(), verdict_expected) << limit;
    }
}

TEST_F(TemperatureMonitorConstructionTest, BeginsWithTheFirstLimit) {
    make();
    EXPECT_EQ(LayoutProbe::registering_index(**monitor), 0U);
}

}  // namespace
