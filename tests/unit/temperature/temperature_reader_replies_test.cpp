#include <tuple>

#include "tests/unit/temperature/temperature_reader_fixture.hpp"

namespace {

using namespace reader_test;

/// One of the three replies to a reader.
struct ReplyCase : NamedCase {
    std::size_t number;      ///< of the call among the sendings
    std::string error_line;  ///< for a set error argument
    std::string body_line;   ///< for a body that cannot be read
    MakeMessage usable;      ///< an error reply that has the right signature
};

const ReplyCase replies[] = {
    {"GetTemperatureIdFromName", 4, "1 Error when calling GetTemperatureIdFromName: ",
     "2 Failed to parse sensor id: ", error_body_of("i", 3)},
    {"RegisterForTemperatureChangeSignal", 5, "2 Error while receiving DBus signal: ",
     "2 Failed to setup temperature change singal: ", error_body_of("i", 12)},
    {"GetTemperature", 6, "2 Error while receiving DBus signal: ", "2 Failed to parse sensor id: ",
     error_body_of("d", 21.5)},
};

class TemperatureReaderReplyTest : public TemperatureReaderTest,
                                   public testing::WithParamInterface<ReplyCase> {
  protected:
    void SetUp() override {
        make();
        reach(GetParam().number);
        EXPECT_EQ(run().size(), 1U);
        EXPECT_TRUE(woken());
    }
};

TEST_P(TemperatureReaderReplyTest, StallsTheReaderUntilItsStopWhereItIsOfNoUse) {
    expect_only_lines(bus.last(), GetParam().usable(messages), GetParam().error_line,
                      GetParam().body_line);
    EXPECT_FALSE(woken());
    EXPECT_TRUE(call_pending());
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(stop().back(), bus.last().release_text);
}

TEST_P(TemperatureReaderReplyTest, IsTakenForItsSignatureAloneAndUnlessTheResultIsNegative) {
    bus.change_results(MessageFunction::read, {0});
    answer(GetParam().usable(messages));
}

INSTANTIATE_TEST_SUITE_P(Calls, TemperatureReaderReplyTest, testing::ValuesIn(replies),
                         case_name<ReplyCase>);

TEST_F(TemperatureReaderTest, TakesARefusedMatchForAnInstalledOne) {
    make();
    reach(3);
    EXPECT_EQ(run(), (Journal{change_match}));
    EXPECT_EQ(install(bus.last(), messages.error("com.example.Error", "too many")), wake_up);
    look_up();
}

TEST_F(TemperatureReaderTest, WaitsForGoodAfterASetErrorArgumentOfTheInstallation) {
    make();
    reach(3);
    EXPECT_EQ(run(), (Journal{change_match}));
    const std::string line = "1 Error when adding match for TemperatureSignal: ";
    EXPECT_EQ(install(bus.last(), messages.reply(""), denied),
              (Journal{line + "not you", "fire event_port"}));
    EXPECT_EQ(install(bus.last(), messages.reply(""), silent), (Journal{line, "fire event_port"}));
    EXPECT_TRUE(match_held());
    EXPECT_EQ(run(), Journal{}) << "the match does not count as installed";
}

class TemperatureChangeTest : public TemperatureReaderTest {
  protected:
    void SetUp() override {
        make();
        register_reader();
        fetch(20.0);
        EXPECT_TRUE(woken());
        EXPECT_EQ(run(), publication("20"));
    }
    Journal hear(std::int32_t id, double reading) {
        return deliver(bus.sending(3), change(id, reading));
    }
};

TEST_F(TemperatureChangeTest, TakesReadingsOfItsOwnRegistrationUnlessTheResultIsNegative) {
    bus.change_results(MessageFunction::read, {0});
    notify(21.5);
    EXPECT_EQ(run(), publication("21.5"));
}

TEST_F(TemperatureChangeTest, IgnoresReadingsOfOtherRegistrations) {
    for (const std::int32_t other : {11, 13, 3, -1, 0, -12})
        EXPECT_EQ(hear(other, 99.0), Journal{});
    EXPECT_EQ(run(), Journal{});
}

TEST_F(TemperatureChangeTest, TakesNothingFromASignalThatIsOfNoUse) {
    const std::string line = "2 Failed to setup temperature signal: ";
    expect_only_lines(bus.sending(3), change(12, 99.0),
                      "2 Error while receiving DBus signal: ", line);
    for (const MakeMessage& unreadable : {signal_of("TemperatureChangeSignal", "i", 12),
                                          signal_of("TemperatureChangeSignal", "di", 1.0, 12)})
        EXPECT_EQ(deliver(bus.sending(3), unreadable(messages)),
                  (Journal{line + "No such device or address", returns(-ENXIO)}));
    EXPECT_FALSE(woken());
    EXPECT_EQ(run(), Journal{});
}

TEST_F(TemperatureChangeTest, DoesNotTouchAPendingCall) {
    change_owner(":1.6");
    EXPECT_EQ(run(), (Journal{lookup}));
    EXPECT_EQ(hear(-1, 22.0), wake_up) << "-1 is the reader's id until it is registered again";
    EXPECT_TRUE(call_pending());
}

TEST_F(TemperatureReaderTest, TakesASignalOfWhichNothingIsReadForOneWithoutAnId) {
    make();
    reach(4);
    bus.make_up(MessageFunction::read, {0});
    EXPECT_EQ(deliver(bus.sending(3), change(12, 20.0)), wake_up)
        << "-1 is the reader's id until it is registered";
    EXPECT_EQ(LayoutProbe::temperature(block()), -999.0);
}

/// The remark at each effect: match added, the ids of the sensor and of the registration, the
/// reading, a call pending.
TEST_F(TemperatureReaderTest, RecordsWhatItHearsBeforeItIsWoken) {
    make();
    reach(3);
    EXPECT_EQ(run(), (Journal{change_match}));
    (void)readings();
    remark([this] {
        const TemperatureReader& now = block();
        return std::tuple(LayoutProbe::match_added(now), LayoutProbe::sensor_id(now),
                          LayoutProbe::change_signal_id(now),
                          LayoutProbe::temperature(block()).value_or(-1.0), call_pending());
    });
    const auto answered = [this](const Message& reply) {
        EXPECT_EQ(run().size(), 1U);
        return deliver(bus.last(), reply);
    };
    EXPECT_EQ(install(bus.last(), messages.reply(""), denied),
              (Journal{"1 Error when adding match for TemperatureSignal: not you | "
                       "(false, -1, -1, -1, false)",
                       "fire event_port | (false, -1, -1, -1, false)"}));
    EXPECT_EQ(install(bus.last(), messages.reply("s", "more")),
              (Journal{"fire event_port | (true, -1, -1, -1, false)"}));
    EXPECT_EQ(readings(), Journal{}) << "what confirms a match is not read";
    EXPECT_EQ(answered(messages.reply("i", 3)),
              (Journal{"release #4 GetTemperatureIdFromName | (true, 3, -1, -1, true)",
                       "fire event_port | (true, 3, -1, -1, false)"}));
    EXPECT_EQ(answered(messages.reply("i", 12)),
              (Journal{"release #5 RegisterForTemperatureChangeSignal | (true, 3, 12, -1, true)",
                       "fire event_port | (true, 3, 12, -1, false)"}));
    EXPECT_EQ(answered(messages.reply("d", 20.0)),
              (Journal{"release #6 GetTemperature | (true, 3, 12, 20, true)",
                       "fire event_port | (true, 3, 12, 20, false)"}));
    EXPECT_EQ(deliver(bus.sending(3), change(12, 21.0)),
              (Journal{"fire event_port | (true, 3, 12, 21, false)"}));
}

}  // namespace
