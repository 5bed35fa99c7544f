#include "host/plugin/timer_block.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "framework/algo-tools/connection_tools.hpp"
#include "framework/shared/host_access.hpp"

namespace host {
namespace {

using Fenwa::HostAccess;

class TimerBlockTest : public testing::Test {
  protected:
    TimerBlockTest() {
        sd_event* loop = nullptr;
        common::check(sd_event_new(&loop), "loop");
        loop_.reset(loop);
        timer_ =
            std::make_unique<TimerBlock>("tick", Fenwa::BlockConfiguration{{"interval", 10}}, loop);
        HostAccess::adopt(*timer_, tools_, queue_);
    }

    /// Serves the loop for a while, running the timer as a host does. @returns the runs.
    int serve(std::chrono::microseconds time) {
        int runs = 0;
        const auto end = std::chrono::steady_clock::now() + time;
        while (std::chrono::steady_clock::now() < end) {
            sd_event_run(loop_.get(), 100);
            std::vector<Fenwa::Block*> ready;
            queue_.take(ready);
            for (Fenwa::Block* block : ready) {
                Fenwa::ReadyQueue::about_to_run(*block);
                EXPECT_TRUE(HostAccess::arm(*block));
                block->run();
                HostAccess::disarm(*block);
                ++runs;
            }
        }
        return runs;
    }

    Fenwa::datatype_timersource value() const {
        return *static_cast<const Fenwa::datatype_timersource*>(
            HostAccess::value_address(*timer_->get_outport("out")));
    }

    common::EventPtr loop_;
    Fenwa::ConnectionTools no_bus_{nullptr};
    Fenwa::InitTools tools_{&no_bus_};
    Fenwa::ReadyQueue queue_{[] {}};
    std::unique_ptr<TimerBlock> timer_;
};

TEST_F(TimerBlockTest, TicksBetweenStartAndStopOnly) {
    EXPECT_EQ(serve(std::chrono::milliseconds(40)), 0);
    timer_->start();
    EXPECT_GT(serve(std::chrono::milliseconds(60)), 2);
    timer_->stop();
    const auto last = value();
    EXPECT_EQ(serve(std::chrono::milliseconds(40)), 0);
    EXPECT_EQ(value(), last);
}

TEST_F(TimerBlockTest, TicksThatTheHostWasTooBusyForAreLeftOut) {
    timer_->start();
    std::this_thread::sleep_for(std::chrono::milliseconds(95));
    // The one that was due long ago, and at most the one that has come due while it was served.
    EXPECT_LE(serve(std::chrono::milliseconds(2)), 2);
    const auto ticks = value().ticks;
    EXPECT_GE(ticks, 1U);
    EXPECT_LE(ticks, 2U);
}

TEST_F(TimerBlockTest, PeriodDoesNotDriftWhenTheHostIsALittleLate) {
    timer_->start();
    // A busy machine may lose ticks in one round; a timer that drifts does so in all of them.
    double best = 0.0;
    for (int round = 0; round < 10 && best < 0.9; ++round) {
        const auto begin = std::chrono::steady_clock::now();
        int runs = 0;
        for (int i = 0; i < 30; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(6));
            runs += serve(std::chrono::microseconds(100));
        }
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
        best = std::max(best, runs * 0.010 / took.count());
    }
    EXPECT_GE(best, 0.9);
}

TEST_F(TimerBlockTest, StopBeforeTheStartIsHarmless) {
    timer_->stop();
    EXPECT_EQ(serve(std::chrono::milliseconds(20)), 0);
}

}  // namespace
}  // namespace host
