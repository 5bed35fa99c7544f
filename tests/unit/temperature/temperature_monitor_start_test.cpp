#include <cmath>
#include <functional>
#include <stdexcept>

#include "fenwa/sdbus_error.hpp"
#include "tests/support/silent_bus_error.hpp"
#include "tests/unit/temperature/temperature_monitor_fixture.hpp"

namespace {

using namespace monitor_test;

// The first publication of a monitor.
const std::string good = "publish temperature_ok_out = true";
const std::string bad = "publish temperature_ok_out = false";

/// A band, a first reading and its verdict.
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
                         public testing::WithParamInterface<VerdictCase> {};

TEST_P(FirstVerdictTest, IsWhetherTheReadingLiesInTheBandWhateverTheOnLimitsAre) {
    const VerdictCase& given = GetParam();
    for (const auto& [low_on_temp, high_on_temp] :
         {std::pair{given.low_off, given.high_off}, {100.0, -100.0}, {not_a_number, infinity}}) {
        foresee(given.reading);
        EXPECT_EQ(construct({{"low_off_temp", given.low_off},
                             {"high_off_temp", given.high_off},
                             {"low_on_temp", low_on_temp},
                             {"high_on_temp", high_on_temp}}),
                  (Journal{id_lookup, first_reading, given.ok ? good : bad}));
        EXPECT_EQ(verdict(), given.ok);
    }
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
    // NaN is neither below nor above anything.
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

/// An end of one of the two blocking calls, and its lines.
struct Ending : NamedCase {
    std::function<void(Recorders&)> foresee;
    std::optional<std::string> failure;  ///< detail of the line of a failed call
    std::string parse_failure;           ///< detail of the line of an unreadable reply

    /// The lines, with this prefix for a failed call.
    [[nodiscard]] Lines lines(const std::string& prefix) const {
        Lines lines;
        if (failure)
            lines.push_back("2 " + prefix + *failure);
        lines.push_back("2 Failed to parse sensor id: " + parse_failure);
        return lines;
    }
};

template <class Exception>
std::function<void(Recorders&)> throwing(const Exception& exception) {
    return [=](Recorders& recorders) { recorders.tools.throw_next(exception); };
}
std::function<void(Recorders&)> replying(const MakeMessage& make) {
    return [=](Recorders& recorders) { recorders.tools.reply_next(make(recorders.messages)); };
}

const Ending endings[] = {
    {"Refused",
     throwing(Fenwa::SDBusError("org.freedesktop.DBus.Error.ServiceUnknown", "nobody is there",
                                -EHOSTUNREACH)),
     "org.freedesktop.DBus.Error.ServiceUnknown: nobody is there", "Invalid argument"},
    {"RefusedSilently", throwing(SilentBusError()), "", "Invalid argument"},
    {"Nothing", [](Recorders& recorders) { recorders.tools.return_next(); }, std::nullopt,
     "Invalid argument"},
    {"Empty", replying(reply_of("")), std::nullopt, "No such device or address"},
    {"Unreadable", replying(reply_of("s", "warm")), std::nullopt, "No such device or address"},
    {"OneSizeTooLarge", replying(reply_of("x", std::int64_t{3})), std::nullopt,
     "No such device or address"},
};

class FailedStartTest : public TemperatureMonitorTest, public testing::WithParamInterface<Ending> {
  protected:
    /// All of these in their order.
    static Journal joined(const std::vector<Journal>& parts) {
        Journal all;
        for (const Journal& part : parts)
            all.insert(all.end(), part.begin(), part.end());
        return all;
    }

    const Lines lookup_lines = GetParam().lines("Failed to lookup sensor id: ");
    const Lines reading_lines = GetParam().lines("Failed to read temperature: ");
    // The controller looks at the name, so the monitor asks without an id too.
    const std::string reading_without_id =
        "blocking " + controller_call("GetTemperature(i -1, s \"main\")");
};

TEST_P(FailedStartTest, GoesOnWithoutTheSensorsId) {
    GetParam().foresee(recorders);
    recorders.tools.reply_next(messages.reply("d", 30.0));
    EXPECT_EQ(construct(), joined({{id_lookup}, lookup_lines, {reading_without_id, good}}));
    install_matches();
    EXPECT_EQ(run(),
              (Journal{controller_call("RegisterForTemperatureSignal(i -1, d -998, b true)")}));
}

TEST_P(FailedStartTest, GoesOnWithoutAReadingAsIfItWereMinus999) {
    for (const auto& [limit, verdict] : {std::pair{-998.5, bad}, {-999.5, good}}) {
        recorders.tools.reply_next(messages.reply("i", 3));
        GetParam().foresee(recorders);
        EXPECT_EQ(construct({{"low_off_temp", limit}}),
                  joined({{id_lookup, first_reading}, reading_lines, {verdict}}));
    }
}

TEST_P(FailedStartTest, AsksForTheReadingWhateverBecameOfTheId) {
    for (const Ending& first : endings) {
        first.foresee(recorders);
        GetParam().foresee(recorders);
        EXPECT_EQ(construct(), joined({{id_lookup},
                                       first.lines("Failed to lookup sensor id: "),
                                       {reading_without_id},
                                       reading_lines,
                                       {good}}))
            << first.name;
    }
}

INSTANTIATE_TEST_SUITE_P(Calls, FailedStartTest, testing::ValuesIn(endings), case_name<Ending>);

TEST_F(TemperatureMonitorTest, WarnsOfEachNegativeResultOfItsTwoReads) {
    bus.change_results(MessageFunction::read, {-EPERM, -EPERM, 0, 0});
    foresee(20.0);
    const std::string line = "2 Failed to parse sensor id: Operation not permitted";
    EXPECT_EQ(construct(), (Journal{id_lookup, line, first_reading, line, good}));
    make();
}

TEST_F(TemperatureMonitorTest, LetsAnyOtherExceptionOfTheLookupOut) {
    recorders.tools.throw_next(std::runtime_error("something else"));
    EXPECT_THROW((void)construct(), std::runtime_error);
    EXPECT_EQ(bus.take_journal(), (Journal{id_lookup}));
}

TEST_F(TemperatureMonitorTest, LetsAnyOtherExceptionOfTheReadingOut) {
    recorders.tools.reply_next(messages.reply("i", 3));
    recorders.tools.throw_next(std::bad_alloc());
    EXPECT_THROW((void)construct(), std::bad_alloc);
    EXPECT_EQ(bus.take_journal(), (Journal{id_lookup, first_reading}));
}

}  // namespace
