#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "framework/algo-tools/connection_tools.hpp"
#include "framework/shared/host_access.hpp"
#include "framework/shared/log_sink.hpp"
#include "src/blocks/power/power_consumer.hpp"
#include "src/blocks/power/power_monitor.hpp"
#include "tests/abi/vtable.hpp"

namespace {

using abi_test::call_slot;
using Lines = std::vector<std::string>;

/// On a bus that is not there, what is sent fails, which names the operation that sent it.
class PowerSlotsTest : public testing::Test {
  protected:
    PowerSlotsTest() {
        Fenwa::set_log_sink([this](int, const std::string& line) { lines_.push_back(line); });
    }
    ~PowerSlotsTest() override { Fenwa::set_log_sink({}); }

    void adopt(Fenwa::Block& block) { (void)Fenwa::HostAccess::adopt(block, tools, queue); }
    Lines take_lines() { return std::exchange(lines_, {}); }

    /// The slots in which the block does not have the operation of its base. Those that the base
    /// defines in its header are left out: each library may have a copy of them.
    static std::set<std::size_t> overridden(const Fenwa::Block& block) {
        const Fenwa::Block plain("plain", {});
        std::set<std::size_t> slots;
        for (std::size_t slot = 0; slot <= 18; ++slot) {
            const bool in_header = slot >= 9 && slot <= 11;
            if (!in_header &&
                abi_test::entry<void()>(&block, slot) != abi_test::entry<void()>(&plain, slot))
                slots.insert(slot);
        }
        return slots;
    }

    Fenwa::ConnectionTools nowhere{nullptr};
    Fenwa::InitTools tools{&nowhere};
    Fenwa::ReadyQueue queue{[] {}};

  private:
    Lines lines_;
};

using Slots = std::set<std::size_t>;

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
