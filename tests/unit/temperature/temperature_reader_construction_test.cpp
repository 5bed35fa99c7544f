#include <cmath>

#include "framework/shared/debug_data_store.hpp"
#include "tests/unit/temperature/temperature_reader_fixture.hpp"

namespace {

using namespace reader_test;

/// Builds readers from configurations of its own.
class TemperatureReaderConstructionTest : public TemperatureReaderTest {
  protected:
    TemperatureReader& build(const Fenwa::BlockConfiguration& config) {
        reader.emplace(recorders.tools, "reader",
                       Fenwa::ConfigurationAccess::observed(config, recorder));
        return **reader;
    }

    static Fenwa::BlockConfiguration with_delta(double delta) {
        return {{"sensor_name", {"main"}}, {"delta_chg", delta}};
    }

    std::shared_ptr<support::ConfigurationRecorder> recorder =
        std::make_shared<support::ConfigurationRecorder>();
};

TEST_F(TemperatureReaderConstructionTest, HasOneOutputAndNoInput) {
    build(with_delta(0.5));
    EXPECT_EQ((*reader)->get_outport_names(), (Journal{"temperature_out"}));
    EXPECT_EQ((*reader)->get_inport_names(), Journal{});
    EXPECT_EQ(port().datatype().path(), "/prefix/well-known.d/double");
    EXPECT_EQ(port().value, 0.0);
    EXPECT_FALSE(std::signbit(port().value));
    EXPECT_EQ(published(), std::nullopt);
    EXPECT_EQ(Fenwa::HostAccess::eventport_names(**reader), (Journal{"event_port"}));
}

TEST_F(TemperatureReaderConstructionTest, FollowsTheTemperatureController) {
    build(with_delta(0.5));
    appear();
    EXPECT_EQ(bus.sending(2).text,
              "call org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus "
              "GetNameOwner(s \"com.tarlo.TemperatureController\")");
}

TEST_F(TemperatureReaderConstructionTest, ReadsItsKeysOnceInThisOrderAndAllAsRequired) {
    build(with_delta(0.5));
    EXPECT_EQ(recorder->reads,
              (Journal{"bool fake.active", "string sensor_name", "double delta_chg"}));
}

TEST_F(TemperatureReaderConstructionTest, ReadsTheFakeValueOnlyWhenItIsActive) {
    build(with_delta(0.5) + Fenwa::BlockConfiguration{{"fake.active", true}});
    EXPECT_EQ(recorder->reads, (Journal{"bool fake.active", "double fake.value",
                                        "string sensor_name", "double delta_chg"}));
}

TEST_F(TemperatureReaderConstructionTest, KeepsTheGivenConfigurationOverItsDefaults) {
    build(with_delta(0.25) + Fenwa::BlockConfiguration{{"fake.active", true}});
    const auto& merged = Fenwa::HostAccess::configuration(**reader);
    EXPECT_EQ(merged.getDouble("delta_chg"), 0.25);
    EXPECT_TRUE(merged.getBool("fake.active"));
    EXPECT_EQ(merged.getDouble("fake.value"), 36.0);
    EXPECT_EQ(merged.getString("sensor_name"), "main");
}

TEST_F(TemperatureReaderConstructionTest, NeedsASensorName) {
    try {
        build({{"delta_chg", 0.5}});
        FAIL() << "built without a sensor name";
    } catch (const Fenwa::ConfigurationError& error) {
        EXPECT_EQ(error.key(), "sensor_name");
        EXPECT_TRUE(error.missing());
    }
}

TEST_F(TemperatureReaderConstructionTest, NeedsAThresholdAlthoughThereIsADefault) {
    try {
        build({{"sensor_name", {"main"}}});
        FAIL() << "built without a threshold";
    } catch (const Fenwa::ConfigurationError& error) {
        EXPECT_EQ(error.key(), "delta_chg");
        EXPECT_TRUE(error.missing());
    }
    // The default is what the debug-data store was told before.
    ASSERT_EQ(recorders.debug.registrations().size(), 1U);
    EXPECT_EQ(recorders.debug.registrations().front().config,
              (Journal{"delta_chg=1", "fake.active=0", "fake.value=36", "sensor_name=1 strings"}));
}

TEST_F(TemperatureReaderConstructionTest, RefusesValuesOfAnotherType) {
    const Entry name{"sensor_name", {"main"}};
    const Entry delta{"delta_chg", 0.5};
    EXPECT_THROW(build({{"sensor_name", true}, delta}), Fenwa::ConfigurationError);
    EXPECT_THROW(build({name, {"delta_chg", true}}), Fenwa::ConfigurationError);
    EXPECT_THROW(build({name, delta, {"fake.active", 1.0}}), Fenwa::ConfigurationError);
    EXPECT_THROW(build({name, delta, {"fake.active", true}, {"fake.value", {"hot"}}}),
                 Fenwa::ConfigurationError);
    // A fake value that is not asked for may be anything.
    EXPECT_NO_THROW(build({name, delta, {"fake.value", {"hot"}}}));
}

TEST_F(TemperatureReaderConstructionTest, RegistersWithTheDebugDataStoreOnceItHasItsPort) {
    build(with_delta(0.25));
    ASSERT_EQ(recorders.debug.registrations().size(), 1U);
    const auto& registered = recorders.debug.registrations().front();
    EXPECT_EQ(registered.block, &**reader);
    EXPECT_EQ(registered.outports, (Journal{"temperature_out"}));
    EXPECT_EQ(registered.config, (Journal{"delta_chg=0.25", "fake.active=0", "fake.value=36",
                                          "sensor_name=1 strings"}));
    EXPECT_EQ(registered.extra, Journal{});
}

TEST_F(TemperatureReaderConstructionTest, DropsTheRegistrationBeforeItReadsTheSensorName) {
    std::size_t registered_before = 1;
    std::size_t registered_then = 0;
    recorder->on_each = [&](const std::string& key) {
        if (key == "fake.active")
            registered_before = recorders.debug.registrations().size();
        if (key == "sensor_name")
            registered_then = recorders.debug.registrations().size();
        EXPECT_EQ(Fenwa::debug_data_blocks(), Journal{});
    };
    build(with_delta(0.5));
    EXPECT_EQ(registered_before, 0U) << "registered before the configuration was taken over";
    EXPECT_EQ(registered_then, 1U);
}

TEST_F(TemperatureReaderConstructionTest, IsWokenByItsConstruction) {
    build(with_delta(0.5));
    EXPECT_TRUE(reader->woken());
    EXPECT_FALSE(reader->woken());
    EXPECT_EQ(bus.take_journal(), Journal{});
}

TEST_F(TemperatureReaderConstructionTest, WarnsOfAThresholdOfZeroOrLess) {
    const auto warned = [this](double delta) {
        build(with_delta(delta));
        return log.take();
    };
    EXPECT_EQ(warned(0.0), (Lines{"2 Temperature reader disabled by delta_temperature = 0"}));
    EXPECT_EQ(warned(-0.0), (Lines{"2 Temperature reader disabled by delta_temperature = -0"}));
    EXPECT_EQ(warned(-1.0), (Lines{"2 Temperature reader disabled by delta_temperature = -1"}));
    EXPECT_EQ(warned(-0.123456789),
              (Lines{"2 Temperature reader disabled by delta_temperature = -0.123457"}));
    EXPECT_EQ(warned(-1e20),
              (Lines{"2 Temperature reader disabled by delta_temperature = -1e+20"}));
    EXPECT_EQ(warned(-std::numeric_limits<double>::infinity()),
              (Lines{"2 Temperature reader disabled by delta_temperature = -inf"}));
}

TEST_F(TemperatureReaderConstructionTest, DoesNotWarnOfAnyOtherThreshold) {
    const auto warned = [this](double delta) {
        build(with_delta(delta));
        return log.take();
    };
    EXPECT_EQ(warned(std::numeric_limits<double>::denorm_min()), Lines{});
    EXPECT_EQ(warned(1.0), Lines{});
    EXPECT_EQ(warned(not_a_number), Lines{});
    EXPECT_EQ(warned(std::numeric_limits<double>::infinity()), Lines{});
}

TEST_F(TemperatureReaderConstructionTest, TakesAnIntegerForItsThreshold) {
    build({{"sensor_name", {"main"}}, {"delta_chg", -2}});
    EXPECT_EQ(log.take(), (Lines{"2 Temperature reader disabled by delta_temperature = -2"}));
}

TEST_F(TemperatureReaderTest, KnowsNoIdsUntilItIsToldAndWhenItsServiceIsNew) {
    make();
    EXPECT_EQ(LayoutProbe::sensor_id(**reader), -1);
    EXPECT_EQ(LayoutProbe::change_signal_id(**reader), -1);
    register_reader();
    EXPECT_EQ(LayoutProbe::sensor_id(**reader), 3);
    EXPECT_EQ(LayoutProbe::change_signal_id(**reader), 12);
    (*reader)->on_service_appeared();
    EXPECT_EQ(LayoutProbe::sensor_id(**reader), -1);
    EXPECT_EQ(LayoutProbe::change_signal_id(**reader), -1);
}

}  // namespace
