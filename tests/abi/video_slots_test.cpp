#include "src/blocks/video/on_screen_controls.hpp"
#include "src/blocks/video/prioritized_text_overlay_setter.hpp"
#include "src/blocks/video/video_ready.hpp"
#include "tests/abi/block_without_bus.hpp"
#include "tests/support/layout_probe.hpp"

namespace {

using namespace abi_test;
using blocks::LayoutProbe;

class VideoSlotsTest : public BlockWithoutBusTest {};

TEST_F(VideoSlotsTest, OfOnScreenControlsHoldItsDestructorsStopAndRun) {
    blocks::OnScreenControls controls("controls", {{"channel", 0}});
    adopt(controls);
    EXPECT_EQ(overridden(controls), (Slots{0, 1, 16, 17}));
    EXPECT_TRUE(call_slot<bool>(&controls, 17));
    EXPECT_EQ(take_lines(), (Lines{"Failed to add match for NameOwnerChanged: Invalid argument"}));
    LayoutProbe::added_features(controls) = {{"WDR1", "en-us"}};
    call_slot<void>(&controls, 16);
    EXPECT_EQ(take_lines(), (Lines{"Failed to remove feature \"WDR1\": Invalid argument"}));
}

TEST_F(VideoSlotsTest, OfATextOverlaySetterHoldItsDestructorsStartAndStop) {
    auto* const setter =
        new blocks::PrioritizedTextOverlaySetter("setter", {{"prio_text_overlay", {"Smoke"}}});
    adopt(*setter);
    EXPECT_EQ(overridden(*setter), (Slots{0, 1, 15, 16}));
    call_slot<void>(setter, 15);
    EXPECT_EQ(take_lines(), (Lines{"Could not set prioritized text overlay: Invalid argument"}));
    call_slot<void>(setter, 16);
    EXPECT_EQ(take_lines(), Lines{});
    LayoutProbe::overlay_set(*setter) = true;
    call_slot<void>(setter, 1);
    EXPECT_EQ(take_lines(), (Lines{"Could not unset prioritized text overlay: Invalid argument"}));
}

TEST_F(VideoSlotsTest, OfAVideoReadyHoldItsDestructorsSetupStartAndRun) {
    blocks::VideoReady block("ready", {{"channel", 3}}, tools);
    adopt(block);
    EXPECT_EQ(take_lines(), Lines{});
    EXPECT_EQ(overridden(block), (Slots{0, 1, 2, 15, 17}));
    const Fenwa::BlockConfiguration unused;
    const auto holds_video_back = [&] {
        return call_slot<Fenwa::BlockConfiguration, const Fenwa::BlockConfiguration&>(&block, 2,
                                                                                      unused)
            .getBool("no_video_at_startup");
    };
    EXPECT_FALSE(holds_video_back());
    LayoutProbe::enabled(block) = true;
    EXPECT_TRUE(holds_video_back());
    call_slot<void>(&block, 15);
    EXPECT_EQ(take_lines().size(), 1U);
    EXPECT_TRUE(call_slot<bool>(&block, 17));
    EXPECT_EQ(take_lines().size(), 1U);
}

}  // namespace
