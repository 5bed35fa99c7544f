#include "host/scheduler.hpp"

#include <gtest/gtest.h>

#include <chrono>

#include "framework/algo-tools/connection_tools.hpp"
#include "framework/shared/host_access.hpp"

namespace host {
namespace {

/// A block that can be fired from outside.
class Fired : public Fenwa::Block {
  public:
    explicit Fired(const std::string& name)
        : Fenwa::Block(name, {}), port(make_eventport("event")) {}
    Fenwa::EventPort* port;
};

class SchedulerTest : public testing::Test {
  protected:
    explicit SchedulerTest(const Pace& pace = {}) : pace_(pace) {
        for (Fired* block : {&a_, &b_, &c_})
            Fenwa::HostAccess::adopt(*block, tools_, scheduler_.queue());
    }

    void on_run(Fenwa::Block& block) {
        Fenwa::ReadyQueue::about_to_run(block);
        Fenwa::HostAccess::arm(block);
        ran_ += block.get_name();
        if (during_)
            during_(block);
        Fenwa::HostAccess::disarm(block);
    }

    /// Serves the loop until nothing is left to do.
    void serve() {
        while (sd_event_run(&loop(), 0) > 0) {
        }
    }

    static sd_event* new_loop() {
        sd_event* loop = nullptr;
        tool::check(sd_event_new(&loop), "loop");
        return loop;
    }
    sd_event& loop() { return *loop_; }

    Pace pace_;
    tool::EventPtr loop_{new_loop()};
    Fenwa::ConnectionTools no_bus_{nullptr};
    Fenwa::InitTools tools_{&no_bus_};
    std::string ran_;
    std::function<void(Fenwa::Block&)> during_;
    Scheduler scheduler_{*loop_, pace_, [this](Fenwa::Block& block) { on_run(block); }};
    Fired a_{"a"};
    Fired b_{"b"};
    Fired c_{"c"};
};

TEST_F(SchedulerTest, NothingRunsBeforeItIsEnabledAndNothingIsForgotten) {
    b_.port->fire();
    a_.port->fire();
    serve();
    EXPECT_EQ(ran_, "");
    scheduler_.enable();
    serve();
    EXPECT_EQ(ran_, "ba");
}

TEST_F(SchedulerTest, NothingRunsAfterItIsDisabled) {
    scheduler_.enable();
    scheduler_.disable();
    a_.port->fire();
    serve();
    EXPECT_EQ(ran_, "");
}

TEST_F(SchedulerTest, WhatIsFiredInAPassRunsInTheNext) {
    scheduler_.enable();
    int rounds = 0;
    during_ = [&](Fenwa::Block& block) {
        if (&block == &a_ && ++rounds < 3) {
            a_.port->fire();
            c_.port->fire();
        }
    };
    a_.port->fire();
    b_.port->fire();
    serve();
    EXPECT_EQ(ran_, "abaca");  // the second fire of c comes before its first run
}

TEST_F(SchedulerTest, LoopGoesRoundBetweenTwoPasses) {
    scheduler_.enable();
    during_ = [this](Fenwa::Block&) { a_.port->fire(); };
    a_.port->fire();
    for (std::size_t round = 1; round <= 10; ++round) {
        ASSERT_GT(sd_event_run(loop_.get(), 0), 0);
        EXPECT_EQ(ran_.size(), round);
    }
}

TEST_F(SchedulerTest, TimersAreServedBetweenTwoPasses) {
    scheduler_.enable();
    during_ = [this](Fenwa::Block&) { a_.port->fire(); };
    a_.port->fire();
    bool timer_came = false;
    tool::check(sd_event_add_time_relative(
                    loop_.get(), nullptr, CLOCK_MONOTONIC, 1000, 1,
                    [](sd_event_source*, std::uint64_t, void* userdata) {
                        *static_cast<bool*>(userdata) = true;
                        return 0;
                    },
                    &timer_came),
                "timer");
    // On a busy machine the timer may be due before the first pass; the block goes on behind it.
    for (int i = 0; i < 1'000'000 && !(timer_came && ran_.size() > 10U); ++i)
        sd_event_run(loop_.get(), 0);
    EXPECT_TRUE(timer_came);
    EXPECT_GT(ran_.size(), 10U);
}

TEST_F(SchedulerTest, WhatABlockThrowsEndsTheLoopAndIsKept) {
    scheduler_.enable();
    during_ = [](Fenwa::Block&) { throw std::runtime_error("thrown on purpose"); };
    a_.port->fire();
    b_.port->fire();
    EXPECT_EQ(scheduler_.failure(), nullptr);
    EXPECT_EQ(sd_event_loop(loop_.get()), 0);
    EXPECT_EQ(ran_, "a");
    ASSERT_NE(scheduler_.failure(), nullptr);
    EXPECT_THROW(std::rethrow_exception(scheduler_.failure()), std::runtime_error);
}

/// Three runs at once, then one each 20 ms.
class PacedScheduler : public SchedulerTest {
  protected:
    PacedScheduler() : SchedulerTest({3, 50.0}) { scheduler_.enable(); }

    /// Serves the loop, sleeping where there is nothing to do, until that many blocks have run.
    /// @returns how long that took.
    std::chrono::microseconds serve_until_ran(std::size_t runs) {
        const auto begin = std::chrono::steady_clock::now();
        while (ran_.size() < runs && sd_event_run(&loop(), 5'000'000) > 0) {
        }
        EXPECT_EQ(ran_.size(), runs);
        return std::chrono::duration_cast<std::chrono::microseconds>(
            std::chrono::steady_clock::now() - begin);
    }
};

TEST_F(PacedScheduler, BlockThatHasSpentItsBudgetWaitsWhileOthersGoOn) {
    during_ = [this](Fenwa::Block& block) {
        if (&block == &a_)
            a_.port->fire();
    };
    a_.port->fire();
    serve();
    EXPECT_EQ(ran_, "aaa");
    b_.port->fire();
    serve();
    EXPECT_EQ(ran_, "aaab");
}

TEST_F(PacedScheduler, BlockThatWaitsRunsAtTheRate) {
    during_ = [this](Fenwa::Block&) { a_.port->fire(); };
    a_.port->fire();
    const auto took = serve_until_ran(3 + 10);
    EXPECT_GE(took, std::chrono::milliseconds(200));
    EXPECT_LT(took, std::chrono::seconds(2));  // a slow machine's time, not the brake's
}

TEST_F(PacedScheduler, LoopSleepsWhileAllWait) {
    during_ = [this](Fenwa::Block&) { a_.port->fire(); };
    a_.port->fire();
    serve();
    int wake_ups = 0;
    while (ran_.size() < 3 + 5 && ++wake_ups < 1000)
        ASSERT_GT(sd_event_run(&loop(), 5'000'000), 0);
    // For each run a timer and the pass that finds it fired, and one to find the budget spent.
    EXPECT_LE(wake_ups, 15);
}

TEST_F(PacedScheduler, WhatIsFiredWhileABlockWaitsMakesOneRun) {
    for (int i = 0; i < 3; ++i) {
        a_.port->fire();
        serve();
    }
    bool triggered = false;
    during_ = [&](Fenwa::Block&) { triggered = a_.port->is_triggered(); };
    for (int i = 0; i < 5; ++i) {
        a_.port->fire();
        serve();
    }
    EXPECT_EQ(ran_, "aaa");
    serve_until_ran(4);
    EXPECT_TRUE(triggered);
    EXPECT_EQ(sd_event_run(&loop(), 100'000), 0);
    EXPECT_EQ(ran_, "aaaa");
}

TEST_F(PacedScheduler, ThoseThatWaitTakeTurns) {
    during_ = [](Fenwa::Block& block) { static_cast<Fired&>(block).port->fire(); };
    for (Fired* block : {&b_, &a_, &c_})
        block->port->fire();
    serve_until_ran(9 + 9);
    EXPECT_EQ(ran_, "bacbacbacbacbacbac");
}

TEST_F(PacedScheduler, NothingThatWaitsRunsAfterItIsDisabled) {
    during_ = [this](Fenwa::Block&) { a_.port->fire(); };
    a_.port->fire();
    serve();
    scheduler_.disable();
    EXPECT_EQ(sd_event_run(&loop(), 100'000), 0);
    EXPECT_EQ(ran_, "aaa");
}

/// Blocks that wait for answers of the bus.
class HoldingScheduler : public SchedulerTest {
  protected:
    HoldingScheduler() {
        scheduler_.hold_for_answers([this] { return unanswered_; });
        scheduler_.enable();
    }

    std::size_t unanswered_ = CallHold::mark;
};

TEST_F(HoldingScheduler, BlocksGoOnInTheirOrderAsAnswersCome) {
    a_.port->fire();
    serve();
    b_.port->fire();
    a_.port->fire();
    serve();
    EXPECT_EQ(ran_, "");
    during_ = [this](Fenwa::Block& block) { unanswered_ += &block == &a_ ? 1 : 0; };
    --unanswered_;
    scheduler_.answered();
    serve();
    EXPECT_EQ(ran_, "a");
    --unanswered_;
    scheduler_.answered();
    serve();
    EXPECT_EQ(ran_, "ab");
}

TEST_F(HoldingScheduler, BlocksGoOnWhenNoAnswerComes) {
    a_.port->fire();
    b_.port->fire();
    const auto begin = std::chrono::steady_clock::now();
    while (ran_.size() < 2 && sd_event_run(&loop(), 5'000'000) > 0) {
    }
    EXPECT_EQ(ran_, "ab");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(250));
    // Nobody waits any more.
    c_.port->fire();
    serve();
    EXPECT_EQ(ran_, "abc");
}

class UnbrakedScheduler : public SchedulerTest, public testing::WithParamInterface<Pace> {
  protected:
    UnbrakedScheduler() : SchedulerTest(GetParam()) {}
};

TEST_P(UnbrakedScheduler, BlockRunsAsOftenAsItLikes) {
    scheduler_.enable();
    during_ = [this](Fenwa::Block&) {
        if (ran_.size() < 10'000)
            a_.port->fire();
    };
    a_.port->fire();
    serve();
    EXPECT_EQ(ran_.size(), 10'000U);
}

INSTANTIATE_TEST_SUITE_P(ZeroInEither, UnbrakedScheduler,
                         testing::Values(Pace{0, 200.0}, Pace{64, 0.0}, Pace{0, 0.0}));

}  // namespace
}  // namespace host
