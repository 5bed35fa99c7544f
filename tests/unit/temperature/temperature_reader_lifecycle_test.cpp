#include "tests/unit/temperature/temperature_reader_fixture.hpp"

namespace {

using namespace reader_test;

TEST_F(TemperatureReaderTest, LooksUpAndRegistersAgainWithANewServiceInstance) {
    make();
    register_reader();
    fetch(20.0);
    EXPECT_EQ(run(), publication("20"));
    change_owner(":1.6");
    look_up();
    enlist(77);
    EXPECT_EQ(run(), Journal{}) << "the last reading survives, and so does its publication";
    EXPECT_EQ(deliver(bus.sending(3), change(12, 30.0)), Journal{})
        << "12 was the id at the old instance";
    EXPECT_EQ(deliver(bus.sending(3), change(77, 30.0)), wake_up);
    EXPECT_EQ(run(), publication("30"));
}

TEST_F(TemperatureReaderTest, KnowsNoIdsUntilItIsToldAndWhenItsServiceIsNew) {
    const auto ids = [this] {
        return std::pair(LayoutProbe::sensor_id(block()), LayoutProbe::change_signal_id(block()));
    };
    make();
    EXPECT_EQ(ids(), std::pair(-1, -1));
    register_reader();
    EXPECT_EQ(ids(), std::pair(3, 12));
    block().on_service_appeared();
    EXPECT_EQ(ids(), std::pair(-1, -1));
}

TEST_F(TemperatureReaderTest, WaitsForTheAnswerToTheOldServiceInstance) {
    make();
    reach(3);
    EXPECT_EQ(run(), (Journal{change_match}));
    change_owner(":1.6");
    EXPECT_EQ(run(), Journal{}) << "a match that is being installed is not repeated";
    EXPECT_EQ(install(bus.last(), messages.reply("")), wake_up);
    look_up();
    EXPECT_EQ(run(), (Journal{registration}));
    change_owner(":1.6");
    EXPECT_EQ(run(), Journal{});
    EXPECT_TRUE(call_pending());
}

TEST_F(TemperatureReaderTest, PausesWhileTheServiceHasNoOwner) {
    make();
    register_reader();
    fetch(20.0);
    change_owner("");
    EXPECT_EQ(run(), Journal{});
}

TEST_F(TemperatureReaderTest, ReleasesTheSlotsOfItsBaseAndThenItsOwnWhenStopped) {
    make();
    reach(4);
    EXPECT_EQ(run(), (Journal{lookup}));
    EXPECT_EQ(stop(), (Journal{"release #1 match", "release #2 GetNameOwner",
                               "release #3 TemperatureChangeSignal",
                               "release #4 GetTemperatureIdFromName"}));
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(stop(), Journal{});
    EXPECT_EQ(destroy(), Journal{});
}

TEST_F(TemperatureReaderTest, ReleasesItsOwnSlotsAndThenThoseOfItsBaseWhenDestroyed) {
    make();
    reach(4);
    EXPECT_EQ(run(), (Journal{lookup}));
    EXPECT_EQ(destroy(),
              (Journal{"release #4 GetTemperatureIdFromName", "release #3 TemperatureChangeSignal",
                       "release #2 GetNameOwner", "release #1 match"}));
}

TEST_F(TemperatureReaderTest, IsNotWokenOnceItIsStopped) {
    make();
    reach(4);
    EXPECT_EQ(run(), (Journal{lookup}));
    (void)stop();
    EXPECT_EQ(install(bus.sending(3), messages.reply("")), Journal{});
    EXPECT_EQ(deliver(bus.sending(4), messages.reply("i", 3)), Journal{});
    EXPECT_EQ(deliver(bus.sending(3), change(-1, 20.0)), Journal{});
    EXPECT_EQ(reconfigure(fake(false, 0.0)), Journal{});
    EXPECT_EQ(reconfigure(fake(true, 0.0)), Journal{});
}

TEST_F(TemperatureReaderTest, HoldsItsMatchForInstalledAfterAStop) {
    make();
    reach(4);
    (void)stop();
    change_owner(":1.6");
    EXPECT_EQ(run(), (Journal{lookup}));
}

}  // namespace
