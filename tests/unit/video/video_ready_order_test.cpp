#include "tests/unit/video/video_ready_fixture.hpp"

namespace {

using namespace ready_test;

const std::string look_at_0 = "look at rotation_vip0_in";
const std::string look_at_1 = "look at rotation_vip1_in";

class VideoReadyOrderTest : public VideoReadyTest {
  protected:
    /// Builds a block and lets it signal once.
    void make_and_start() {
        make();
        succeed_next();
        EXPECT_EQ(start(), (Journal{signal_of("0")}));
        (void)take();
    }
    Journal effects_of_a_run() {
        EXPECT_TRUE(block->run_woken());
        return take();
    }
};

TEST_F(VideoReadyOrderTest, TakesTheStepsOfItsConstructionInThisOrder) {
    recorders.tools.reply_next(messages.reply("s", "masked"));
    block.emplace(recorders.tools, "ready", support::observed({{"channel", 0}}));
    EXPECT_EQ(take(),
              (Journal{"input rotation_vip0_in", "input rotation_vip1_in", "event resend",
                       "int channel", unit_query, "4 video-ready.service is masked, skipping it",
                       "release the reply to GetUnitFileState"}));
}

TEST_F(VideoReadyOrderTest, LooksAtItsSecondInputOnlyWhenTheFirstIsNotTriggered) {
    make_and_start();
    rotate("rotation_vip0_in");
    rotate("rotation_vip1_in");
    succeed_next();
    EXPECT_EQ(effects_of_a_run(), (Journal{look_at_0, signal_of("0")}));
    rotate("rotation_vip1_in");
    succeed_next();
    EXPECT_EQ(effects_of_a_run(), (Journal{look_at_0, look_at_1, signal_of("0")}));
}

TEST_F(VideoReadyOrderTest, DoesNotSignalBecauseItsOwnEventWasFired) {
    make_and_start();
    LayoutProbe::resend(**block).fire();
    EXPECT_EQ(effects_of_a_run(), (Journal{look_at_0, look_at_1}));
}

TEST_F(VideoReadyOrderTest, TellsOfAFailureBeforeItAsksForAnotherRunAndOwesTheSignalThroughout) {
    make_and_start();
    rotate("rotation_vip0_in");
    fail_next();
    remark([this] { return pending(); });
    EXPECT_EQ(effects_of_a_run(),
              (Journal{look_at_0 + " | false", signal_of("0") + " | true",
                       "2 Failed to signal video enabled to : "
                       "org.freedesktop.DBus.Error.ServiceUnknown: nobody there | true",
                       "fire resend | true"}));
}

TEST_F(VideoReadyOrderTest, StillSignalsInARunAfterItsStopWhenItOwesThat) {
    make();
    (*block)->stop();
    succeed_next();
    EXPECT_EQ(run(), (Journal{signal_of("0")}));
}

}  // namespace
