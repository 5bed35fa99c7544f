#include <cmath>
#include <functional>
#include <system_error>

#include "tests/support/configuration_recorder.hpp"
#include "tests/unit/temperature/temperature_reader_fixture.hpp"

namespace {

using namespace reader_test;

/// Readings, and the publications when the reader runs twice after each.
struct ReadingsCase : NamedCase {
    std::vector<double> readings;
    std::vector<Journal> published;
};

const ReadingsCase readings_cases[] = {
    {"OnceEach",
     {36.5, 36.5, std::nextafter(36.5, 37.0)},
     {publication("36.5"), publication("36.50000000000001", "36.5")}},
    {"AsADoubleButAFloatForDebugging", {36.6}, {publication("36.6", "36.5999985")}},
    {"NoFirstReadingOfZero", {0.0}, {}},
    {"WithoutTellingTheTwoZerosApart",
     {-0.0, 1.0, -0.0, 0.0},
     {publication("1"), publication("-0")}},
    {"NotANumberOnEveryRun", {not_a_number}, {publication("nan"), publication("nan")}},
    {"Infinity", {-infinity}, {publication("-inf")}},
};

class ReadingsTest : public TemperatureReaderTest,
                     public testing::WithParamInterface<ReadingsCase> {};

TEST_P(ReadingsTest, ArePublished) {
    make();
    register_reader();
    fetch(GetParam().readings.front());
    std::vector<Journal> published;
    for (std::size_t index = 0; index < GetParam().readings.size(); ++index) {
        if (index > 0)
            notify(GetParam().readings[index]);
        for (const Journal& effects : {run(), run()}) {
            if (!effects.empty())
                published.push_back(effects);
        }
    }
    EXPECT_EQ(published, GetParam().published);
}

INSTANTIATE_TEST_SUITE_P(Readings, ReadingsTest, testing::ValuesIn(readings_cases),
                         case_name<ReadingsCase>);

TEST_F(TemperatureReaderTest, NamesTheDebugEntryAfterTheSensorsId) {
    make();
    reach(4);
    look_up(std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(run().size(), 1U);
    answer(messages.reply("i", 12));
    notify(5.0);
    EXPECT_EQ(run(),
              (Journal{"publish temperature_out = 5",
                       "temperature_reader_sensor_id2147483647_current_temperature = #2 5"}));
}

// The fake temperature.

/// The effects of a run that asks for the first reading and publishes a value.
Journal call_and_publication(const std::string& value) {
    Journal effects = publication(value);
    effects.insert(effects.begin(), reading_call);
    return effects;
}

TEST_F(TemperatureReaderTest, PublishesTheFakeTemperatureInsteadOfReadings) {
    make(fake(true, 48.5));
    register_reader();
    EXPECT_EQ(run(), call_and_publication("48.5"));
    answer(messages.reply("d", 20.0));
    EXPECT_EQ(run(), Journal{});
    notify(21.0);
    EXPECT_EQ(run(), Journal{});
}

TEST_F(TemperatureReaderTest, FakesTheDefaultTemperatureWhenNoneIsGiven) {
    make({{"fake.active", true}});
    register_reader();
    EXPECT_EQ(run(), call_and_publication("36"));
}

TEST_F(TemperatureReaderTest, PublishesNoFakeTemperatureBeforeItIsRegistered) {
    make(fake(true, 50.0));
    reach(5);
    EXPECT_EQ(run(), (Journal{registration}));
    EXPECT_EQ(run(), Journal{});
}

TEST_F(TemperatureReaderTest, PublishesAFakeTemperatureAlsoWhenTheReadingCannotBeAskedFor) {
    make(fake(true, 50.0));
    register_reader();
    bus.answer_next({-EPERM});
    Journal effects = call_and_publication("50");
    effects.insert(effects.begin() + 1,
                   "1 Failed to call method RegisterForTemperatureChangeSignal: "
                   "Operation not permitted");
    EXPECT_EQ(run(), effects);
}

TEST_F(TemperatureReaderTest, PublishesAFakeThatIsSwitchedOnWhileTheReadingIsOut) {
    make();
    register_reader();
    EXPECT_EQ(run(), (Journal{reading_call}));
    EXPECT_EQ(reconfigure(fake(true, 50.0)), wake_up);
    EXPECT_EQ(run(), publication("50"));
}

TEST_F(TemperatureReaderTest, PublishesAFakeThatIsSwitchedOnAfterTheReadingFailed) {
    make();
    register_reader();
    EXPECT_EQ(run(), (Journal{reading_call}));
    EXPECT_EQ(deliver(bus.last(), messages.error("com.example.Error", nullptr)).size(), 2U);
    (void)reconfigure(fake(true, 50.0));
    EXPECT_EQ(run(), publication("50")) << "the failed call is held for good";
    notify(21.0);
    (void)reconfigure(fake(false, 0.0));
    EXPECT_EQ(run(), publication("21")) << "a signal brings readings all the same";
}

TEST_F(TemperatureReaderTest, TakesOverAnotherFakeTemperatureAndItsEnd) {
    make();
    register_reader();
    fetch(20.0);
    EXPECT_EQ(run(), publication("20"));
    EXPECT_EQ(reconfigure(fake(true, -40.0)), wake_up) << "only a run publishes";
    EXPECT_EQ(run(), publication("-40"));
    EXPECT_EQ(reconfigure(fake(false, 0.0)), wake_up);
    EXPECT_EQ(run(), publication("20"));
    (void)reconfigure(fake(true, 20.0));
    EXPECT_EQ(run(), Journal{}) << "the reading published last equals the fake value";
}

TEST_F(TemperatureReaderTest, PublishesNothingWhenTheFakeIsSwitchedOffBeforeAnyReading) {
    make(fake(true, 50.0));
    register_reader();
    EXPECT_EQ(run(), call_and_publication("50"));
    EXPECT_EQ(reconfigure(fake(false, 0.0)), wake_up);
    EXPECT_EQ(run(), Journal{});
}

TEST_F(TemperatureReaderTest, LooksOnlyAtTheFirstConfigurationWhenReconfigured) {
    make();
    const auto second = std::make_shared<ConfigurationRecorder>();
    block().reconfigure(fake(true, 1.0), Fenwa::ConfigurationAccess::observed({}, second));
    EXPECT_EQ(second->reads, Journal{});
}

TEST_F(TemperatureReaderTest, LetsTheErrorsOfANewConfigurationOut) {
    make(fake(true, 50.0));
    EXPECT_THROW(block().reconfigure({}, fake(true, 1.0)), Fenwa::ConfigurationError);
    EXPECT_THROW(block().reconfigure({{"fake.active", true}}, {}), Fenwa::ConfigurationError);
    EXPECT_FALSE(woken());
    EXPECT_EQ(reconfigure(fake(true, 51.0)), wake_up) << "would hang if the lock had been kept";
}

// The reader chooses, publishes and mirrors a value under its mutex, and reads a fake value under
// it.

class TemperatureReaderLockTest : public TemperatureReaderTest {
  protected:
    void SetUp() override {
        make();
        register_reader();
        fetch(20.0);
        mutex_.emplace(LayoutProbe::fake_mutex(block()));
    }
    void TearDown() override {
        mutex_.reset();
        TemperatureReaderTest::TearDown();
    }
    /// A run that publishes `value` under the lock.
    static Journal locked_publication(const std::string& value) {
        Journal effects = publication(value);
        effects.insert(effects.begin(), "lock");
        effects.push_back("unlock");
        return effects;
    }
    void fail_next_lock() { mutex_->fail_next(EDEADLK); }

  private:
    std::optional<LockRecorder> mutex_;
};

TEST_F(TemperatureReaderLockTest, PublishesAndThenMirrorsUnderTheLock) {
    EXPECT_EQ(run(), locked_publication("20"));
    EXPECT_EQ(run(), (Journal{"lock", "unlock"})) << "nothing new";
}

TEST_F(TemperatureReaderLockTest, ChoosesWhatItPublishesUnderTheLock) {
    journal.remark_with([this](const std::string& entry) -> std::string {
        if (entry == "lock")  // another thread has held it until now
            LayoutProbe::fake_temperature(block()) = 50.0;
        return "";
    });
    EXPECT_EQ(run(), locked_publication("50"));
}

TEST_F(TemperatureReaderLockTest, ReadsAFakeValueUnderTheLockAndTakesItAwayWithoutIt) {
    EXPECT_EQ(
        reconfigure(observed(fake(true, 50.0))),
        (Journal{"bool fake.active", "lock", "double fake.value", "unlock", "fire event_port"}));
    journal.remark_with([this](const std::string& entry) -> std::string {
        return entry.starts_with("fire") && !LayoutProbe::fake_temperature(block()) ? ", gone" : "";
    });
    EXPECT_EQ(reconfigure(observed(fake(false, 50.0))),
              (Journal{"bool fake.active", "fire event_port, gone"}));
}

TEST_F(TemperatureReaderLockTest, LetsTheErrorOfAFailingLockOut) {
    for (const auto& use :
         {std::function<void()>([this] { (void)block().run(); }),
          std::function<void()>([this] { (void)reconfigure(fake(true, 50.0)); })}) {
        fail_next_lock();
        try {
            use();
            FAIL() << "went on without the lock";
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code().value(), EDEADLK);
        }
    }
    EXPECT_EQ(journal.take(effect::to_be_seen | effect::fire | effect::publication), Journal{});
    EXPECT_FALSE(LayoutProbe::fake_temperature(block()));
}

}  // namespace
