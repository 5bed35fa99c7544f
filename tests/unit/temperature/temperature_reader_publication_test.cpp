#include <chrono>
#include <cmath>
#include <future>
#include <limits>

#include "framework/shared/debug_data_store.hpp"
#include "tests/unit/temperature/temperature_reader_fixture.hpp"

namespace {

using namespace reader_test;
using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;

const std::string debug_key = "temperature_reader_sensor_id3_current_temperature = #2 ";

Fenwa::BlockConfiguration fake(bool active, double value) {
    return {{"fake.active", active}, {"fake.value", value}};
}

TEST_F(TemperatureReaderTest, PublishesAReadingOnceWithItsDebugEntry) {
    make();
    register_reader();
    fetch(36.5);
    EXPECT_EQ(published(), std::nullopt) << "a callback published";
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), 36.5);
    EXPECT_EQ(debug_values(), (Values{debug_key + "36.5"}));
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), std::nullopt);
}

TEST_F(TemperatureReaderTest, PublishesADoubleAndKeepsAFloatForDebugging) {
    make();
    register_reader();
    fetch(36.6);
    (void)run();
    EXPECT_EQ(published(), 36.6);
    EXPECT_EQ(debug_values(), (Values{debug_key + "36.5999985"}));
    const auto value =
        Fenwa::debug_data().get_value("temperature_reader_sensor_id3_current_temperature");
    ASSERT_TRUE(value);
    EXPECT_EQ(std::get<float>(*value), 36.6F);
}

TEST_F(TemperatureReaderTest, NamesTheDebugEntryAfterTheSensorsId) {
    make();
    appear();
    install();
    EXPECT_EQ(run(), (Journal{lookup}));
    EXPECT_EQ(bus.last().deliver(messages.reply("i", std::numeric_limits<std::int32_t>::max())), 0);
    (void)run();
    EXPECT_EQ(bus.last().deliver(messages.reply("i", 12)), 0);
    EXPECT_EQ(bus.sending(3).deliver(change(12, 5.0)), 0);
    (void)run();
    EXPECT_EQ(published(), 5.0);
    EXPECT_EQ(debug_values(),
              (Values{"temperature_reader_sensor_id2147483647_current_temperature = #2 5"}));
}

TEST_F(TemperatureReaderTest, PublishesAReadingAgainOnlyWhenItDiffers) {
    make();
    register_reader();
    fetch(36.5);
    (void)run();
    EXPECT_EQ(published(), 36.5);
    notify(36.5);
    (void)run();
    EXPECT_EQ(published(), std::nullopt);
    const double next = std::nextafter(36.5, 37.0);
    notify(next);
    (void)run();
    EXPECT_EQ(published(), next);
    EXPECT_EQ(debug_values(), (Values{debug_key + "36.5", debug_key + "36.5"}));
}

TEST_F(TemperatureReaderTest, DoesNotPublishAFirstReadingOfZero) {
    make();
    register_reader();
    fetch(0.0);
    (void)run();
    EXPECT_EQ(published(), std::nullopt);
    EXPECT_EQ(debug_values(), Values{});
}

TEST_F(TemperatureReaderTest, DoesNotTellTheTwoZerosApart) {
    make();
    register_reader();
    fetch(-0.0);
    (void)run();
    EXPECT_EQ(published(), std::nullopt);
    EXPECT_FALSE(std::signbit(port().value));
    notify(1.0);
    (void)run();
    notify(-0.0);
    (void)run();
    EXPECT_TRUE(std::signbit(port().value));
    EXPECT_TRUE(published());
    notify(0.0);
    (void)run();
    EXPECT_EQ(published(), std::nullopt);
    EXPECT_TRUE(std::signbit(port().value));
    EXPECT_EQ(debug_values(), (Values{debug_key + "1", debug_key + "-0"}));
}

TEST_F(TemperatureReaderTest, PublishesNotANumberOnEveryRun) {
    make();
    register_reader();
    fetch(not_a_number);
    for (int again = 0; again < 3; ++again) {
        (void)run();
        const auto value = published();
        ASSERT_TRUE(value);
        EXPECT_TRUE(std::isnan(*value));
    }
    EXPECT_EQ(debug_values(), (Values{debug_key + "nan", debug_key + "nan", debug_key + "nan"}));
}

TEST_F(TemperatureReaderTest, PublishesInfinity) {
    make();
    register_reader();
    fetch(-std::numeric_limits<double>::infinity());
    (void)run();
    EXPECT_EQ(published(), -std::numeric_limits<double>::infinity());
    EXPECT_EQ(debug_values(), (Values{debug_key + "-inf"}));
}

TEST_F(TemperatureReaderTest, PublishesTheFakeTemperatureInsteadOfReadings) {
    make(fake(true, 50.0));
    register_reader();
    EXPECT_EQ(run(), (Journal{reading_call})) << "the reading is fetched all the same";
    EXPECT_EQ(published(), 50.0);
    EXPECT_EQ(bus.last().deliver(messages.reply("d", 20.0)), 0);
    EXPECT_EQ(run(), (Journal{"release #6 GetTemperature"}));
    notify(21.0);
    (void)run();
    EXPECT_EQ(published(), std::nullopt);
    EXPECT_EQ(port().value, 50.0);
    EXPECT_EQ(debug_values(), (Values{debug_key + "50"}));
}

TEST_F(TemperatureReaderTest, FakesTheDefaultTemperatureWhenNoneIsGiven) {
    make({{"fake.active", true}});
    register_reader();
    EXPECT_EQ(run(), (Journal{reading_call}));
    EXPECT_EQ(published(), 36.0);
    EXPECT_EQ(debug_values(), (Values{debug_key + "36"}));
}

TEST_F(TemperatureReaderTest, PublishesNoFakeTemperatureBeforeItIsRegistered) {
    make(fake(true, 50.0));
    appear();
    EXPECT_EQ(published(), std::nullopt);
    install();
    EXPECT_EQ(published(), std::nullopt);
    look_up();
    EXPECT_EQ(published(), std::nullopt);
    EXPECT_EQ(run(), (Journal{registration}));
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), std::nullopt);
    EXPECT_EQ(port().value, 0.0);
}

TEST_F(TemperatureReaderTest, PublishesAFakeTemperatureAlsoWhenTheReadingCannotBeAskedFor) {
    make(fake(true, 50.0));
    register_reader();
    bus.answer_next({-5});
    EXPECT_EQ(run(), (Journal{reading_call}));
    EXPECT_EQ(log.take().size(), 1U);
    EXPECT_EQ(published(), 50.0);
    EXPECT_EQ(debug_values(), (Values{debug_key + "50"}));
}

TEST_F(TemperatureReaderTest, PublishesTheLastReadingWhenTheFakeIsSwitchedOff) {
    make(fake(true, 50.0));
    register_reader();
    fetch(20.0);
    (void)run();
    EXPECT_EQ(published(), 50.0);
    (*reader)->reconfigure(fake(false, 0.0), {});
    EXPECT_TRUE(reader->woken());
    EXPECT_EQ(published(), std::nullopt) << "only a run publishes";
    (void)run();
    EXPECT_EQ(published(), 20.0);
    EXPECT_EQ(debug_values(), (Values{debug_key + "50", debug_key + "20"}));
}

TEST_F(TemperatureReaderTest, PublishesNothingWhenTheFakeIsSwitchedOffBeforeAnyReading) {
    make(fake(true, 50.0));
    register_reader();
    EXPECT_EQ(run(), (Journal{reading_call}));
    EXPECT_EQ(published(), 50.0);
    (*reader)->reconfigure(fake(false, 0.0), {});
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), std::nullopt);
    EXPECT_EQ(debug_values().size(), 1U);
}

TEST_F(TemperatureReaderTest, TakesOverAnotherFakeTemperature) {
    make();
    register_reader();
    fetch(20.0);
    (void)run();
    (*reader)->reconfigure(fake(true, -40.0), {});
    (void)run();
    EXPECT_EQ(published(), -40.0);
    (*reader)->reconfigure(fake(true, 20.0), {});
    (void)run();
    EXPECT_EQ(published(), 20.0);
    (*reader)->reconfigure(fake(false, 0.0), {});
    (void)run();
    EXPECT_EQ(published(), std::nullopt) << "the reading equals the fake value last published";
    EXPECT_EQ(debug_values().size(), 3U);
}

TEST_F(TemperatureReaderTest, LooksOnlyAtTheFirstConfigurationWhenReconfigured) {
    make();
    const auto first = std::make_shared<support::ConfigurationRecorder>();
    const auto second = std::make_shared<support::ConfigurationRecorder>();
    const auto observed = Fenwa::ConfigurationAccess::observed;
    (*reader)->reconfigure(observed(fake(false, 1.0), first), observed({}, second));
    EXPECT_EQ(first->reads, (Journal{"bool fake.active"}));
    (*reader)->reconfigure(observed(fake(true, 1.0), first), observed({}, second));
    EXPECT_EQ(first->reads, (Journal{"bool fake.active", "bool fake.active", "double fake.value"}));
    EXPECT_EQ(second->reads, Journal{});
}

TEST_F(TemperatureReaderTest, LetsTheErrorsOfANewConfigurationOut) {
    make(fake(true, 50.0));
    EXPECT_THROW((*reader)->reconfigure({}, fake(true, 1.0)), Fenwa::ConfigurationError);
    EXPECT_THROW((*reader)->reconfigure({{"fake.active", true}}, {}), Fenwa::ConfigurationError);
    EXPECT_FALSE(reader->woken());
    (*reader)->reconfigure(fake(true, 51.0), {});  // would hang if the lock had been kept
    EXPECT_TRUE(reader->woken());
}

TEST_F(TemperatureReaderTest, IsWokenByANewConfigurationUnlessStopped) {
    make();
    (*reader)->reconfigure(fake(false, 0.0), {});
    EXPECT_TRUE(reader->woken());
    (*reader)->reconfigure(fake(true, 0.0), {});
    EXPECT_TRUE(reader->woken());
    (*reader)->stop();
    (*reader)->reconfigure(fake(false, 0.0), {});
    (*reader)->reconfigure(fake(true, 0.0), {});
    EXPECT_FALSE(reader->woken());
}

/// Takes the debug-data store's listener away again.
struct ListenerGuard {
    ~ListenerGuard() { Fenwa::set_debug_listener({}); }
};

TEST_F(TemperatureReaderTest, HoldsBackANewFakeTemperatureButNotItsEndWhilePublishing) {
    make();
    register_reader();
    fetch(20.0);
    std::promise<void> publishing;
    std::promise<void> go_on;
    const ListenerGuard guard;
    Fenwa::set_debug_listener([&](const std::string&, const Fenwa::DebugValue&) {
        publishing.set_value();
        go_on.get_future().wait();
    });
    auto ran = std::async(std::launch::async, [this] { (*reader)->run(); });
    ASSERT_EQ(publishing.get_future().wait_for(5s), std::future_status::ready);

    auto stored =
        std::async(std::launch::async, [this] { (*reader)->reconfigure(fake(true, 50.0), {}); });
    EXPECT_EQ(stored.wait_for(200ms), std::future_status::timeout);
    auto cleared =
        std::async(std::launch::async, [this] { (*reader)->reconfigure(fake(false, 0.0), {}); });
    EXPECT_EQ(cleared.wait_for(5s), std::future_status::ready);
    EXPECT_EQ(stored.wait_for(0s), std::future_status::timeout);

    go_on.set_value();
    EXPECT_EQ(ran.wait_for(5s), std::future_status::ready);
    EXPECT_EQ(stored.wait_for(5s), std::future_status::ready);
    EXPECT_EQ(published(), 20.0);
    EXPECT_EQ(debug_values().size(), 1U);
}

}  // namespace
