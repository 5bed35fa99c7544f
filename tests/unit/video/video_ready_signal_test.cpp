#include <cerrno>
#include <stdexcept>
#include <utility>

#include "tests/support/silent_bus_error.hpp"
#include "tests/unit/video/video_ready_fixture.hpp"

namespace {

using namespace ready_test;

const std::string line = "2 Failed to signal video enabled to : ";

TEST_F(VideoReadyTest, SignalsWithEveryStartAndThenNoMore) {
    settle();
    EXPECT_EQ(run(), only_looks);
    succeed_next();
    EXPECT_EQ(start(), Journal{signal_sent});
    EXPECT_EQ(run(), only_looks);
    EXPECT_EQ(bus.replies_held(), 0U);
    EXPECT_EQ(stop(), Journal{"Block::stop"});
    EXPECT_EQ(destroy(), Journal{});
}

TEST_F(VideoReadyTest, NamesTheObjectAfterItsChannelAlsoWhenNoBusTakesIt) {
    for (const auto& [channel, text] : {std::pair{-1, "-1"}, {-2147483647 - 1, "-2147483648"}}) {
        make("enabled", channel);
        succeed_next();
        EXPECT_EQ(start(), Journal{signal_of(text)});
    }
}

TEST_F(VideoReadyTest, SignalsInItsFirstRunWhenItWasNotStartedAlsoAfterAStop) {
    make();
    EXPECT_EQ(stop(), Journal{"Block::stop"});
    succeed_next();
    EXPECT_EQ(run(), (Journal{look_at_0, look_at_1, signal_sent}));
    EXPECT_EQ(run(), only_looks);
}

TEST_F(VideoReadyTest, SignalsOnceWhenEitherOrBothRotationsChange) {
    settle();
    const std::string first = "rotation_vip0_in";
    const std::string second = "rotation_vip1_in";
    for (const auto& [changed, effects] :
         {std::pair{Journal{first}, Journal{look_at_0, signal_sent}},
          {Journal{second}, Journal{look_at_0, look_at_1, signal_sent}},
          {Journal{second, first}, Journal{look_at_0, signal_sent}}}) {
        for (const std::string& port : changed)
            rotate(port);
        succeed_next();
        EXPECT_EQ(run_woken(), effects);
        EXPECT_FALSE(pending());
        EXPECT_EQ(run(), only_looks);
    }
}

TEST_F(VideoReadyTest, SignalsAgainInEachRunUntilACallSucceeds) {
    settle();
    rotate("rotation_vip1_in");
    remark([this] { return pending(); });
    for (int again = 0; again < 3; ++again) {
        fail_next();
        const std::string before = again == 0 ? " | false" : " | true";
        EXPECT_EQ(run_woken(),
                  (Journal{look_at_0 + before, look_at_1 + before, signal_sent + " | true",
                           line + "a.Error: nobody there | true", "fire resend | true"}));
    }
    journal.remark_with({});
    succeed_next();
    EXPECT_EQ(run_woken(), (Journal{look_at_0, look_at_1, signal_sent}));
    EXPECT_EQ(run(), only_looks);
}

TEST_F(VideoReadyTest, DoesNotSignalBecauseItsOwnEventWasFired) {
    settle();
    LayoutProbe::resend(block()).fire();
    EXPECT_EQ(run_woken(), only_looks);
}

TEST_F(VideoReadyTest, EndsTheLineWithThePrefixWhenTheFailureHasNoText) {
    make();
    recorders.tools.throw_next(support::SilentBusError());
    EXPECT_EQ(start(), (Journal{signal_sent, line, "fire resend"}));
}

TEST_F(VideoReadyTest, LetsAnyOtherExceptionOutAndStillOwesTheSignal) {
    make();
    recorders.tools.throw_next(std::runtime_error("something else"));
    EXPECT_THROW(start(), std::runtime_error);
    EXPECT_TRUE(pending());
    recorders.tools.throw_next(5);
    EXPECT_THROW(run(), int);
    EXPECT_EQ(take(), (Journal{signal_sent, look_at_0, look_at_1, signal_sent}))
        << "nothing asks for another run";
    settle();
    rotate("rotation_vip0_in");
    recorders.tools.throw_next(std::runtime_error("something else"));
    EXPECT_THROW(run_woken(), std::runtime_error);
    EXPECT_TRUE(pending());
    EXPECT_EQ(take(), (Journal{look_at_0, signal_sent}));
}

}  // namespace
