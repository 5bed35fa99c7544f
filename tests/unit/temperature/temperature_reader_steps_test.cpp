#include <cerrno>

#include "tests/unit/temperature/temperature_reader_fixture.hpp"

namespace {

using namespace reader_test;

TEST_F(TemperatureReaderTest, InstallsTheMatchForChangesWhenTheServiceAppears) {
    make();
    appear();
    EXPECT_EQ(run(), (Journal{change_match}));
    EXPECT_EQ(bus.last().bus, messages.bus());
    EXPECT_EQ(bus.last().slot_field, LayoutProbe::match_slot_field(**reader));
    EXPECT_EQ(bus.last().userdata, &**reader);
    EXPECT_NE(bus.last().callback, nullptr);
    EXPECT_NE(bus.last().install_callback, nullptr);
    EXPECT_NE(bus.last().callback, bus.last().install_callback);
}

TEST_F(TemperatureReaderTest, WaitsUntilTheMatchIsInstalled) {
    make();
    appear();
    EXPECT_EQ(run(), (Journal{change_match}));
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(run(), Journal{});
}

TEST_F(TemperatureReaderTest, LooksTheSensorUpOnceTheMatchIsInstalled) {
    make();
    appear();
    install();
    EXPECT_EQ(run(), (Journal{lookup}));
    EXPECT_EQ(bus.last().bus, messages.bus());
    EXPECT_EQ(bus.last().slot_field, LayoutProbe::call_slot_field(**reader));
    EXPECT_EQ(bus.last().userdata, &**reader);
    EXPECT_EQ(run(), Journal{}) << "the answer is still out";
}

TEST_F(TemperatureReaderTest, RegistersForChangesOnceItKnowsTheSensor) {
    make();
    appear();
    install();
    look_up();
    EXPECT_EQ(run(), (Journal{registration}));
    EXPECT_EQ(bus.last().bus, messages.bus());
    EXPECT_EQ(bus.last().slot_field, LayoutProbe::call_slot_field(**reader));
    EXPECT_EQ(bus.last().userdata, &**reader);
    EXPECT_EQ(run(), Journal{}) << "the answer is still out";
}

TEST_F(TemperatureReaderTest, FetchesTheFirstReadingOnceItIsRegistered) {
    make();
    register_reader();
    EXPECT_EQ(run(), (Journal{reading_call}));
    EXPECT_EQ(bus.last().bus, messages.bus());
    EXPECT_EQ(bus.last().slot_field, LayoutProbe::call_slot_field(**reader));
    EXPECT_EQ(bus.last().userdata, &**reader);
    EXPECT_EQ(published(), std::nullopt);
    EXPECT_EQ(run(), Journal{}) << "the answer is still out";
    EXPECT_EQ(published(), std::nullopt);
}

TEST_F(TemperatureReaderTest, AsksForNothingMoreOnceItHasAReading) {
    make();
    register_reader();
    fetch(0.0);
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(run(), Journal{});
    EXPECT_FALSE(reader->woken());
}

TEST_F(TemperatureReaderTest, DoesNotFetchAReadingThatASignalHasBroughtAlready) {
    make();
    register_reader();
    notify(0.0);
    EXPECT_EQ(run(), Journal{});
}

TEST_F(TemperatureReaderTest, UsesADifferentCallbackForEachReply) {
    make();
    register_reader();
    fetch(0.0);
    EXPECT_NE(bus.sending(4).callback, bus.sending(5).callback);
    EXPECT_NE(bus.sending(4).callback, bus.sending(6).callback);
    EXPECT_NE(bus.sending(5).callback, bus.sending(6).callback);
}

TEST_F(TemperatureReaderTest, PassesItsThresholdOnAsItIs) {
    for (const auto& [delta, text] :
         {std::pair{-1.5, "d -1.5"}, {0.0, "d 0"}, {not_a_number, "d nan"}}) {
        make({{"delta_chg", delta}});
        (void)log.take();
        appear();
        (void)run();
        EXPECT_EQ(bus.last().install(messages.reply("")), 0);
        (void)run();
        EXPECT_EQ(bus.last().deliver(messages.reply("i", 0)), 0);
        (void)bus.take_journal();
        EXPECT_EQ(run(), (Journal{controller_call("RegisterForTemperatureChangeSignal(i 0, " +
                                                  std::string(text) + ")")}));
        reader.reset();
        (void)bus.take_journal();
    }
}

TEST_F(TemperatureReaderTest, PassesAnySensorNameOn) {
    make({{"sensor_name", {""}}});
    appear();
    install();
    EXPECT_EQ(run(), (Journal{controller_call("GetTemperatureIdFromName(s \"\")")}));
}

TEST_F(TemperatureReaderTest, LooksTheSensorUpAgainAfterANegativeId) {
    make();
    appear();
    install();
    EXPECT_EQ(run(), (Journal{lookup}));
    EXPECT_EQ(bus.last().deliver(messages.reply("i", -2)), 0);
    EXPECT_TRUE(reader->woken());
    EXPECT_EQ(bus.take_journal(), (Journal{"release #4 GetTemperatureIdFromName"}));
    EXPECT_EQ(run(), (Journal{lookup}));
}

TEST_F(TemperatureReaderTest, RegistersAgainAfterANegativeChangeSignalId) {
    make();
    appear();
    install();
    look_up();
    EXPECT_EQ(run(), (Journal{registration}));
    EXPECT_EQ(bus.last().deliver(messages.reply("i", -1)), 0);
    EXPECT_TRUE(reader->woken());
    EXPECT_EQ(bus.take_journal(), (Journal{"release #5 RegisterForTemperatureChangeSignal"}));
    EXPECT_EQ(run(), (Journal{registration}));
}

TEST_F(TemperatureReaderTest, TakesIdsOfZero) {
    make();
    appear();
    install();
    EXPECT_EQ(run(), (Journal{lookup}));
    EXPECT_EQ(bus.last().deliver(messages.reply("i", 0)), 0);
    (void)bus.take_journal();
    EXPECT_EQ(run(), (Journal{controller_call("RegisterForTemperatureChangeSignal(i 0, d 0.5)")}));
    EXPECT_EQ(bus.last().deliver(messages.reply("i", 0)), 0);
    (void)bus.take_journal();
    EXPECT_EQ(run(), (Journal{controller_call("GetTemperature(i 0, s \"main\")")}));
}

TEST_F(TemperatureReaderTest, KnowsNeitherItsSensorNorARegistrationFromItsConstructionOn) {
    make();
    const auto work = [this] {
        (*reader)->run_with_service();
        return bus.take_journal();
    };
    EXPECT_EQ(work(), (Journal{change_match}));
    EXPECT_EQ(bus.last().install(messages.reply("")), 0);
    EXPECT_EQ(work(), (Journal{lookup}));
    EXPECT_EQ(bus.last().deliver(messages.reply("i", 3)), 0);
    (void)bus.take_journal();
    EXPECT_EQ(work(), (Journal{registration}));
}

// A step that could not be sent is said at its level and taken again on the next run.

TEST_F(TemperatureReaderTest, TriesTheMatchAgainWhenItCouldNotBeSent) {
    make();
    appear();
    bus.answer_next({-EPERM});
    EXPECT_EQ(run(), (Journal{change_match}));
    EXPECT_EQ(log.take(), (Lines{"2 Failed to add DBus signal callback: "
                                 "Operation not permitted"}));
    EXPECT_FALSE(match_pending());
    EXPECT_FALSE(reader->woken()) << "the next run comes for another reason";
    install();
}

TEST_F(TemperatureReaderTest, TriesTheLookupAgainWhenItCouldNotBeSent) {
    make();
    appear();
    install();
    bus.answer_next({-EPERM});
    EXPECT_EQ(run(), (Journal{lookup}));
    EXPECT_EQ(log.take(), (Lines{"1 Failed to call GetTemperatureIdFromName: "
                                 "Operation not permitted"}));
    EXPECT_FALSE(call_pending());
    EXPECT_FALSE(reader->woken());
    EXPECT_EQ(run(), (Journal{lookup}));
}

TEST_F(TemperatureReaderTest, TriesTheRegistrationAgainWhenItCouldNotBeSent) {
    make();
    appear();
    install();
    look_up();
    bus.answer_next({-EPERM});
    EXPECT_EQ(run(), (Journal{registration}));
    EXPECT_EQ(log.take(), (Lines{"1 Failed to call method RegisterForTemperatureChangeSignal: "
                                 "Operation not permitted"}));
    EXPECT_FALSE(call_pending());
    EXPECT_FALSE(reader->woken());
    EXPECT_EQ(run(), (Journal{registration}));
}

TEST_F(TemperatureReaderTest, TriesTheFirstReadingAgainWhenItCouldNotBeSent) {
    make();
    register_reader();
    bus.answer_next({-EPERM});
    EXPECT_EQ(run(), (Journal{reading_call}));
    EXPECT_EQ(log.take(), (Lines{"1 Failed to call method RegisterForTemperatureChangeSignal: "
                                 "Operation not permitted"}));
    EXPECT_FALSE(call_pending());
    EXPECT_FALSE(reader->woken());
    EXPECT_EQ(run(), (Journal{reading_call}));
}

TEST_F(TemperatureReaderTest, TakesAResultOfZeroFromSdBusForSuccess) {
    make();
    appear();
    bus.answer_next({0, 0, 0, 0});
    install();
    look_up();
    enlist();
    fetch(0.0);
}

}  // namespace
