#include <cerrno>
#include <stdexcept>
#include <utility>

#include "tests/support/silent_bus_error.hpp"
#include "tests/unit/video/video_ready_fixture.hpp"

namespace {

using namespace ready_test;

TEST_F(VideoReadyTest, SignalsWhenItStartsAndThenNoMore) {
    make();
    succeed_next();
    EXPECT_EQ(start(), (Journal{signal_of("0")}));
    EXPECT_EQ(bus.replies_held(), 0U);
    EXPECT_FALSE(pending());
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(run(), Journal{});
    EXPECT_FALSE(block->woken());
}

TEST_F(VideoReadyTest, NamesTheObjectAfterItsChannel) {
    for (const auto& [channel, text] : {std::pair{0, "0"},
                                        {12, "12"},
                                        {-1, "-1"},
                                        {2147483647, "2147483647"},
                                        {-2147483647 - 1, "-2147483648"}}) {
        make("enabled", channel);
        succeed_next();
        EXPECT_EQ(start(), (Journal{signal_of(text)}));
    }
}

TEST_F(VideoReadyTest, SignalsInItsFirstRunWhenItWasNotStarted) {
    make();
    succeed_next();
    EXPECT_EQ(run(), (Journal{signal_of("0")}));
    EXPECT_FALSE(pending());
    EXPECT_EQ(run(), Journal{});
}

TEST_F(VideoReadyTest, SignalsWithEveryStart) {
    make();
    for (int again = 0; again < 3; ++again) {
        succeed_next();
        EXPECT_EQ(start(), (Journal{signal_of("0")}));
        EXPECT_FALSE(pending());
    }
}

TEST_F(VideoReadyTest, SignalsAgainWhenEitherRotationChanges) {
    make();
    succeed_next();
    EXPECT_EQ(start(), (Journal{signal_of("0")}));
    for (const char* port : {"rotation_vip0_in", "rotation_vip1_in", "rotation_vip0_in"}) {
        rotate(port);
        succeed_next();
        EXPECT_EQ(run_woken(), (Journal{signal_of("0")})) << port;
        EXPECT_FALSE(pending());
        EXPECT_EQ(run(), Journal{}) << port;
    }
}

TEST_F(VideoReadyTest, SignalsOnceWhenBothRotationsChange) {
    make();
    succeed_next();
    EXPECT_EQ(start(), (Journal{signal_of("0")}));
    rotate("rotation_vip1_in");
    rotate("rotation_vip0_in");
    succeed_next();
    EXPECT_EQ(run_woken(), (Journal{signal_of("0")}));
    EXPECT_EQ(run(), Journal{});
}

TEST_F(VideoReadyTest, SignalsAgainInEachRunUntilACallSucceeds) {
    make();
    fail_next();
    EXPECT_EQ(start(), (Journal{signal_of("0")}));
    expect_failure_line();
    EXPECT_TRUE(pending());
    for (int again = 0; again < 3; ++again) {
        fail_next();
        EXPECT_EQ(run_woken(), (Journal{signal_of("0")}));
        expect_failure_line();
        EXPECT_TRUE(pending());
    }
    succeed_next();
    EXPECT_EQ(run_woken(), (Journal{signal_of("0")}));
    EXPECT_FALSE(pending());
    EXPECT_FALSE(block->woken());
    EXPECT_EQ(run(), Journal{});
}

TEST_F(VideoReadyTest, SignalsAgainWhenACallForARotationFailed) {
    make();
    succeed_next();
    EXPECT_EQ(start(), (Journal{signal_of("0")}));
    rotate("rotation_vip1_in");
    fail_next();
    EXPECT_EQ(run_woken(), (Journal{signal_of("0")}));
    expect_failure_line();
    EXPECT_TRUE(pending());
    succeed_next();
    EXPECT_EQ(run_woken(), (Journal{signal_of("0")})) << "woken by its own event";
}

TEST_F(VideoReadyTest, EndsTheLineWithThePrefixWhenTheFailureHasNoText) {
    make();
    recorders.tools.throw_next(support::SilentBusError());
    EXPECT_EQ(start(), (Journal{signal_of("0")}));
    EXPECT_EQ(log.take(), (Lines{"2 Failed to signal video enabled to : "}));
    EXPECT_TRUE(block->woken());
}

TEST_F(VideoReadyTest, LetsAnyOtherExceptionOutAndStillOwesTheSignal) {
    make();
    recorders.tools.throw_next(std::runtime_error("something else"));
    EXPECT_THROW((*block)->start(), std::runtime_error);
    EXPECT_TRUE(pending());
    recorders.tools.throw_next(5);
    EXPECT_THROW((void)(*block)->run(), int);
    EXPECT_TRUE(pending());
    EXPECT_FALSE(block->woken()) << "nothing asks for another run";
    EXPECT_EQ(bus.take_journal(), Journal(2, signal_of("0")));
    succeed_next();
    EXPECT_EQ(run(), (Journal{signal_of("0")}));
}

TEST_F(VideoReadyTest, OwesTheSignalAlsoWhenAnExceptionCameAfterARotation) {
    make();
    succeed_next();
    EXPECT_EQ(start(), (Journal{signal_of("0")}));
    rotate("rotation_vip0_in");
    recorders.tools.throw_next(std::runtime_error("something else"));
    EXPECT_THROW((void)block->run_woken(), std::runtime_error);
    EXPECT_TRUE(pending());
    EXPECT_EQ(bus.take_journal(), (Journal{signal_of("0")}));
}

TEST_F(VideoReadyTest, SendsNothingWhenItIsStoppedOrDestroyed) {
    make();
    (*block)->stop();
    block.reset();
    EXPECT_EQ(bus.take_journal(), Journal{});
}

}  // namespace
