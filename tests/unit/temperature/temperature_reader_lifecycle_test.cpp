#include "tests/unit/temperature/temperature_reader_fixture.hpp"

namespace {

using namespace reader_test;

TEST_F(TemperatureReaderTest, LooksUpAndRegistersAgainWithANewServiceInstance) {
    make();
    register_reader();
    fetch(20.0);
    (void)run();
    EXPECT_EQ(published(), 20.0);
    restart_service();
    EXPECT_EQ(run(), (Journal{lookup})) << "the match is kept";
    EXPECT_EQ(bus.last().deliver(messages.reply("i", 3)), 0);
    EXPECT_EQ(bus.take_journal(), (Journal{"release #7 GetTemperatureIdFromName"}));
    EXPECT_EQ(run(), (Journal{registration}));
    EXPECT_EQ(bus.last().deliver(messages.reply("i", 77)), 0);
    EXPECT_EQ(bus.take_journal(), (Journal{"release #8 RegisterForTemperatureChangeSignal"}));
    EXPECT_EQ(run(), Journal{}) << "a reading is there already";
    EXPECT_EQ(published(), std::nullopt) << "the last value published survives";

    EXPECT_EQ(bus.sending(3).deliver(change(12, 30.0)), 0);
    (void)run();
    EXPECT_EQ(published(), std::nullopt) << "12 was the id at the old instance";
    EXPECT_EQ(bus.sending(3).deliver(change(77, 30.0)), 0);
    (void)run();
    EXPECT_EQ(published(), 30.0);
    EXPECT_EQ(debug_values().size(), 2U);
}

TEST_F(TemperatureReaderTest, WaitsForThePendingCallOfTheOldServiceInstance) {
    make();
    appear();
    install();
    look_up();
    EXPECT_EQ(run(), (Journal{registration}));
    restart_service();
    EXPECT_EQ(run(), Journal{}) << "the call slot is left alone";
    EXPECT_TRUE(call_pending());
}

TEST_F(TemperatureReaderTest, DoesNotRepeatAMatchThatIsBeingInstalled) {
    make();
    appear();
    EXPECT_EQ(run(), (Journal{change_match}));
    restart_service();
    EXPECT_EQ(run(), Journal{});
    EXPECT_TRUE(match_pending());
}

TEST_F(TemperatureReaderTest, PausesWhileTheServiceHasNoOwner) {
    make();
    register_reader();
    fetch(20.0);
    EXPECT_EQ(bus.sending(1).deliver(messages.owner_change(controller_name, ":1.5", "")), 0);
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), std::nullopt);
}

TEST_F(TemperatureReaderTest, ToleratesRunsWithNothingToDo) {
    make();
    register_reader();
    fetch(0.0);
    for (int again = 0; again < 5; ++again)
        EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), std::nullopt);
}

TEST_F(TemperatureReaderTest, ReleasesTheSlotsOfItsBaseAndThenItsOwnWhenStopped) {
    make();
    appear();
    install();
    EXPECT_EQ(run(), (Journal{lookup}));
    (*reader)->stop();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #1 match", "release #2 GetNameOwner",
                                           "release #3 TemperatureChangeSignal",
                                           "release #4 GetTemperatureIdFromName"}));
    EXPECT_FALSE(match_pending());
    EXPECT_FALSE(call_pending());
    EXPECT_FALSE(reader->woken());
    EXPECT_EQ(run(), Journal{});
    (*reader)->stop();
    reader.reset();
    EXPECT_EQ(bus.take_journal(), Journal{});
}

TEST_F(TemperatureReaderTest, ReleasesItsOwnSlotsAndThenThoseOfItsBaseWhenDestroyed) {
    make();
    appear();
    install();
    EXPECT_EQ(run(), (Journal{lookup}));
    reader.reset();
    EXPECT_EQ(bus.take_journal(),
              (Journal{"release #4 GetTemperatureIdFromName", "release #3 TemperatureChangeSignal",
                       "release #2 GetNameOwner", "release #1 match"}));
}

TEST_F(TemperatureReaderTest, IsNotWokenByRepliesOnceItIsStopped) {
    make();
    appear();
    install();
    EXPECT_EQ(run(), (Journal{lookup}));
    (*reader)->stop();
    (void)bus.take_journal();
    EXPECT_EQ(bus.sending(3).install(messages.reply("")), 0);
    EXPECT_EQ(bus.sending(4).deliver(messages.reply("i", 3)), 0);
    EXPECT_EQ(bus.sending(3).deliver(change(-1, 20.0)), 0);
    EXPECT_FALSE(reader->woken());
}

TEST_F(TemperatureReaderTest, StaysQuietAboutAMissingMatchAfterAStop) {
    make();
    appear();
    install();
    (*reader)->stop();
    (void)bus.take_journal();
    // The installed mark outlives the slot: a client that is told of an owner after its stop goes
    // on with the lookup.
    restart_service();
    EXPECT_EQ(run(), (Journal{lookup}));
}

}  // namespace
