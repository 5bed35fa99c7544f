#include "src/blocks/temperature/temperature_monitor.hpp"
#include "src/blocks/temperature/temperature_reader.hpp"
#include "tests/abi/block_without_bus.hpp"
#include "tests/support/layout_probe.hpp"

namespace {

using namespace abi_test;
using blocks::LayoutProbe;
using blocks::OwnerState;

class TemperatureSlotsTest : public BlockWithoutBusTest {};

TEST_F(TemperatureSlotsTest, OfAReaderHoldItsDestructorsStopRunAndReconfigureAndTheHooks) {
    blocks::TemperatureReader reader("reader", {{"sensor_name", {"main"}}, {"delta_chg", 1.0}});
    adopt(reader);
    EXPECT_EQ(overridden(reader), (Slots{0, 1, 16, 17, 18}));
    call_slot<void>(&reader, 20);
    EXPECT_EQ(take_lines(), (Lines{"Failed to add DBus signal callback: Invalid argument"}));
    call_slot<void>(&reader, 19);
    EXPECT_TRUE(call_slot<bool>(&reader, 17));
    EXPECT_EQ(take_lines(), (Lines{"Failed to add match for NameOwnerChanged: Invalid argument"}));
    const Fenwa::BlockConfiguration without_keys;
    EXPECT_THROW(
        (call_slot<void, const Fenwa::BlockConfiguration&, const Fenwa::BlockConfiguration&>(
            &reader, 18, without_keys, without_keys)),
        Fenwa::ConfigurationError);
    call_slot<void>(&reader, 16);
    EXPECT_EQ(LayoutProbe::state(reader), OwnerState::Stopped);
}

TEST_F(TemperatureSlotsTest, OfAMonitorHoldItsDestructorsSetupStopAndRun) {
    blocks::TemperatureMonitor monitor("monitor", {{"sensor_name", {"main"}}}, tools);
    adopt(monitor);
    EXPECT_EQ(take_lines().size(), 4U);
    EXPECT_EQ(overridden(monitor), (Slots{0, 1, 2, 16, 17}));
    const Fenwa::BlockConfiguration unused;
    EXPECT_TRUE((call_slot<Fenwa::BlockConfiguration, const Fenwa::BlockConfiguration&>(&monitor, 2,
                                                                                        unused))
                    .getBool("temperature_ok"));
    EXPECT_TRUE(call_slot<bool>(&monitor, 17));
    EXPECT_EQ(take_lines(), (Lines{"Failed to add match for NameOwnerChanged: Invalid argument"}));
    call_slot<void>(&monitor, 16);
    EXPECT_TRUE(LayoutProbe::stopped(monitor));
}

}  // namespace
