#include <cerrno>
#include <cmath>
#include <functional>
#include <ostream>
#include <stdexcept>

#include "tests/support/silent_bus_error.hpp"
#include "tests/unit/temperature/temperature_monitor_fixture.hpp"

namespace {

using namespace monitor_test;

/// A band, a first reading and what is made of it.
struct VerdictCase {
    double low_off;
    double high_off;
    double reading;
    bool ok;
};

void PrintTo(const VerdictCase& given, std::ostream* out) {
    *out << given.reading << " in " << given.low_off << " to " << given.high_off;
}

class FirstVerdictTest : public TemperatureMonitorTest,
                         public testing::WithParamInterface<VerdictCase> {
  protected:
    void expect_verdict(double low_on_temp, double high_on_temp) {
        const VerdictCase& given = GetParam();
        make(given.reading, {{"low_off_temp", given.low_off},
                             {"high_off_temp", given.high_off},
                             {"low_on_temp", low_on_temp},
                             {"high_on_temp", high_on_temp}});
        EXPECT_EQ(port().value, given.ok) << given.reading;
        EXPECT_EQ(verdict(), given.ok) << given.reading;
    }
};

TEST_P(FirstVerdictTest, IsWhetherTheReadingLiesInTheBandWhateverTheOnLimitsAre) {
    expect_verdict(GetParam().low_off, GetParam().high_off);
    expect_verdict(100.0, -100.0);
    expect_verdict(not_a_number, not_a_number);
}

const VerdictCase verdict_cases[] = {
    // The upper limit belongs to the band, the lower one does not.
    {10.0, 50.0, 9.0, false},
    {10.0, 50.0, 10.0, false},
    {10.0, 50.0, std::nextafter(10.0, 11.0), true},
    {10.0, 50.0, 30.0, true},
    {10.0, 50.0, 50.0, true},
    {10.0, 50.0, std::nextafter(50.0, 51.0), false},
    {10.0, 50.0, 51.0, false},
    // Zero has two signs and one place.
    {0.0, 50.0, -0.0, false},
    {-10.0, -0.0, 0.0, true},
    // What is not a number is neither below nor above anything.
    {10.0, 50.0, not_a_number, true},
    {not_a_number, 50.0, 9.0, true},
    {not_a_number, 50.0, 51.0, false},
    {10.0, not_a_number, 51.0, true},
    {10.0, not_a_number, 10.0, false},
    {not_a_number, not_a_number, 20.0, true},
    {10.0, 50.0, infinity, false},
    {10.0, 50.0, -infinity, false},
    {-infinity, infinity, infinity, true},
    {-infinity, infinity, -infinity, false},
    // No reading lies in a band that is empty or the wrong way round.
    {20.0, 20.0, 20.0, false},
    {50.0, 10.0, 30.0, false},
    {50.0, 10.0, 5.0, false},
    {50.0, 10.0, 55.0, false},
    // Limits are floats: these two are 36.599998474121094.
    {10.0, 36.6, 36.6, false},
    {36.6, 50.0, 36.6, true},
    {10.0, 36.6, 36.599998474121094, true},
};

INSTANTIATE_TEST_SUITE_P(Bands, FirstVerdictTest, testing::ValuesIn(verdict_cases));

TEST_F(TemperatureMonitorTest, IsContentWithAnyRealTemperatureUnlessToldOtherwise) {
    const auto judged = [this](double reading) {
        make(reading);
        return port().value;
    };
    EXPECT_FALSE(judged(-1000.0));
    EXPECT_TRUE(judged(std::nextafter(-1000.0, 0.0)));
    EXPECT_TRUE(judged(-273.15));
    EXPECT_TRUE(judged(1000.0));
    EXPECT_FALSE(judged(std::nextafter(1000.0, 1001.0)));
}

TEST_F(TemperatureMonitorTest, PublishesItsFirstVerdictAndIsWokenWithoutALine) {
    for (const double reading : {20.0, 2000.0}) {
        recorders.tools.reply_next(messages.reply("i", 3));
        recorders.tools.reply_next(messages.reply("d", reading));
        build();
        EXPECT_EQ(published(), reading < 1000.0);
        EXPECT_FALSE(monitor->woken());
        EXPECT_EQ(bus.take_journal(), (Journal{id_lookup, first_reading}));
    }
}

/// How one of the two blocking calls ends, and what is logged then.
struct Ending {
    const char* name;
    std::function<void(support::Recorders&)> foresee;
    std::optional<std::string> failure;  ///< what follows the prefix of a failed call
    std::string parse_failure;           ///< why the reply could not be read

    /// The lines for a call whose failures have this prefix.
    [[nodiscard]] Lines lines(const std::string& prefix) const {
        Lines lines;
        if (failure)
            lines.push_back("2 " + prefix + *failure);
        lines.push_back("2 Failed to parse sensor id: " + parse_failure);
        return lines;
    }
};

void PrintTo(const Ending& ending, std::ostream* out) {
    *out << ending.name;
}

const Ending endings[] = {
    {"Refused",
     [](support::Recorders& recorders) {
         recorders.tools.throw_next(Fenwa::SDBusError("org.freedesktop.DBus.Error.ServiceUnknown",
                                                      "nobody is there", -EHOSTUNREACH));
     },
     "org.freedesktop.DBus.Error.ServiceUnknown: nobody is there", "Invalid argument"},
    {"RefusedSilently",
     [](support::Recorders& recorders) { recorders.tools.throw_next(support::SilentBusError()); },
     "", "Invalid argument"},
    {"Nothing", [](support::Recorders& recorders) { recorders.tools.return_next(); }, std::nullopt,
     "Invalid argument"},
    {"Empty",
     [](support::Recorders& recorders) {
         recorders.tools.reply_next(recorders.messages.reply(""));
     },
     std::nullopt, "No such device or address"},
    {"Unreadable",
     [](support::Recorders& recorders) {
         recorders.tools.reply_next(recorders.messages.reply("s", "warm"));
     },
     std::nullopt, "No such device or address"},
    {"OneSizeTooLarge",
     [](support::Recorders& recorders) {
         recorders.tools.reply_next(recorders.messages.reply("x", std::int64_t{3}));
     },
     std::nullopt, "No such device or address"},
};

class FailedStartTest : public TemperatureMonitorTest, public testing::WithParamInterface<Ending> {
  protected:
    // Without an id the sensor is asked for as -1; it is its name that counts.
    const std::string reading_without_id =
        "blocking " + controller_call("GetTemperature(i -1, s \"main\")");
    const Fenwa::BlockConfiguration band{{"low_off_temp", 10}, {"high_off_temp", 50}};
};

TEST_P(FailedStartTest, GoesOnWithoutTheSensorsId) {
    GetParam().foresee(recorders);
    recorders.tools.reply_next(messages.reply("d", 30.0));
    build(band);
    EXPECT_EQ(log.take(), GetParam().lines("Failed to lookup sensor id: "));
    EXPECT_EQ(bus.take_journal(), (Journal{id_lookup, reading_without_id}));
    EXPECT_EQ(published(), true);
    install_matches();
    EXPECT_EQ(run(),
              (Journal{controller_call("RegisterForTemperatureSignal(i -1, d -998, b true)")}));
}

TEST_P(FailedStartTest, GoesOnWithoutAReadingAsIfItWereOutsideAnyRealBand) {
    recorders.tools.reply_next(messages.reply("i", 3));
    GetParam().foresee(recorders);
    build(band);
    EXPECT_EQ(log.take(), GetParam().lines("Failed to read temperature: "));
    EXPECT_EQ(bus.take_journal(), (Journal{id_lookup, first_reading}));
    EXPECT_EQ(published(), false);
}

TEST_P(FailedStartTest, GoesOnWithoutAReadingAsIfItWereInsideTheDefaultLimits) {
    recorders.tools.reply_next(messages.reply("i", 3));
    GetParam().foresee(recorders);
    build();
    EXPECT_EQ(log.take(), GetParam().lines("Failed to read temperature: "));
    EXPECT_EQ(bus.take_journal(), (Journal{id_lookup, first_reading}));
    EXPECT_EQ(published(), true);
    install_matches();
}

TEST_P(FailedStartTest, AsksForTheReadingWhateverBecameOfTheId) {
    for (const Ending& second : endings) {
        GetParam().foresee(recorders);
        second.foresee(recorders);
        build(band);
        Lines lines = GetParam().lines("Failed to lookup sensor id: ");
        for (const std::string& line : second.lines("Failed to read temperature: "))
            lines.push_back(line);
        EXPECT_EQ(log.take(), lines) << second.name;
        EXPECT_EQ(bus.take_journal(), (Journal{id_lookup, reading_without_id})) << second.name;
        EXPECT_EQ(published(), false) << second.name;
    }
}

std::string ending_name(const testing::TestParamInfo<Ending>& ending) {
    return ending.param.name;
}

INSTANTIATE_TEST_SUITE_P(Calls, FailedStartTest, testing::ValuesIn(endings), ending_name);

TEST_F(TemperatureMonitorTest, LetsAnyOtherExceptionOfTheLookupOut) {
    recorders.tools.throw_next(std::runtime_error("something else"));
    EXPECT_THROW(build(), std::runtime_error);
    EXPECT_EQ(bus.take_journal(), (Journal{id_lookup}));
}

TEST_F(TemperatureMonitorTest, LetsAnyOtherExceptionOfTheReadingOut) {
    recorders.tools.reply_next(messages.reply("i", 3));
    recorders.tools.throw_next(std::bad_alloc());
    EXPECT_THROW(build(), std::bad_alloc);
    EXPECT_EQ(bus.take_journal(), (Journal{id_lookup, first_reading}));
}

}  // namespace
