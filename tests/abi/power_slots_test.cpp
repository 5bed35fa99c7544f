#include "src/blocks/power/power_consumer.hpp"
#include "src/blocks/power/power_monitor.hpp"
#include "tests/abi/block_without_bus.hpp"

namespace {

using namespace abi_test;

class PowerSlotsTest : public BlockWithoutBusTest {};

TEST_F(PowerSlotsTest, OfAConsumerHoldItsDestructorsStopAndRun) {
    blocks::PowerConsumer consumer("consumer", {{"power", 1.0}});
    adopt(consumer);
    EXPECT_EQ(take_lines().size(), 1U);
    EXPECT_EQ(overridden(consumer), (Slots{0, 1, 16, 17}));
    call_slot<void>(&consumer, 16);
    EXPECT_EQ(take_lines(), (Lines{"Failed to unregister power consumer: Invalid argument"}));
    EXPECT_TRUE(call_slot<bool>(&consumer, 17));
    const Lines run{"Failed to add match for NameOwnerChanged: Invalid argument",
                    "Failed to register consumer: Invalid argument"};
    EXPECT_EQ(take_lines(), run);
    EXPECT_TRUE(call_slot<bool>(&consumer, 17));
    EXPECT_EQ(take_lines(), run) << "a connection that is not there is asked for again";
}

TEST_F(PowerSlotsTest, OfAMonitorHoldItsDestructorsSetupStopAndRun) {
    blocks::PowerMonitor monitor("monitor", {{"requested_power", 0.0}}, tools);
    adopt(monitor);
    EXPECT_EQ(take_lines().size(), 2U);
    EXPECT_EQ(overridden(monitor), (Slots{0, 1, 2, 16, 17}));
    const Fenwa::BlockConfiguration unused;
    EXPECT_TRUE((call_slot<Fenwa::BlockConfiguration, const Fenwa::BlockConfiguration&>(&monitor, 2,
                                                                                        unused))
                    .getBool("power_ok"));
    call_slot<void>(&monitor, 16);
    EXPECT_EQ(take_lines(), Lines{});
    EXPECT_TRUE(call_slot<bool>(&monitor, 17));
    EXPECT_EQ(take_lines(), (Lines{"Failed to send properties changed signal handler request: "
                                   "Invalid argument"}));
}

}  // namespace
