#include "host/runtime/scheduler.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <memory>
#include <thread>

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
    explicit SchedulerTest(const RateLimit& rate_limit = {}, bool own_clock = false)
        : rate_limit_(rate_limit), own_clock_(own_clock) {
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

    /// Serves the loop once, as the host does: what is ready, and an event, for which it waits
    /// where nothing was ready. @param wait in microseconds. @returns whether there was something
    /// to do.
    bool serve_once(std::uint64_t wait) {
        const std::size_t known = ran_.size();
        scheduler_.run_ready_blocks();
        const bool has_run = ran_.size() != known;
        return sd_event_run(&loop(), has_run ? 0 : wait) > 0 || has_run;
    }

    /// Serves the loop until nothing is left to do.
    void serve() {
        while (serve_once(0)) {
        }
    }

    /// Serves it for as long, sleeping where there is nothing to do, until so many blocks have run.
    void serve_until_ran(std::size_t runs) {
        while (ran_.size() < runs && serve_once(5'000'000)) {
        }
        EXPECT_EQ(ran_.size(), runs);
    }

    /// Serves it so many times, sleeping for a moment where there is nothing to do.
    void serve_rounds(int rounds) {
        for (int i = 0; i < rounds; ++i)
            serve_once(10'000);
    }

    static sd_event* new_loop() {
        sd_event* loop = nullptr;
        common::check(sd_event_new(&loop), "loop");
        return loop;
    }
    sd_event& loop() { return *loop_; }
    static void fire_itself(Fenwa::Block& block) { static_cast<Fired&>(block).port->fire(); }

    /// The processor time of the loop's thread: the test's own, or the real one.
    [[nodiscard]] std::uint64_t processor_time() const {
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return own_clock_ ? used_
                          : static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 +
                                static_cast<std::uint64_t>(time.tv_nsec);
    }

    RateLimit rate_limit_;
    bool own_clock_;
    std::uint64_t used_ = 0;
    common::EventPtr loop_{new_loop()};
    Fenwa::ConnectionTools no_bus_{nullptr};
    Fenwa::InitTools tools_{&no_bus_};
    std::string ran_;
    std::function<void(Fenwa::Block&)> during_;
    Scheduler scheduler_{*loop_, rate_limit_,
                         [this](Fenwa::Block& block, std::uint64_t) { on_run(block); },
                         [this] { return processor_time(); }};
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

TEST_F(SchedulerTest, BlocksDownstreamRunBeforeTheNextEvent) {
    scheduler_.enable();
    during_ = [this](Fenwa::Block& block) {
        if (&block == &a_)
            b_.port->fire();
        else if (&block == &b_)
            c_.port->fire();
    };
    a_.port->fire();
    EXPECT_FALSE(scheduler_.run_ready_blocks());
    EXPECT_EQ(ran_, "abc");
}

TEST_F(SchedulerTest, LoopServesAnEventAlsoWhenABlockIsAlwaysReady) {
    scheduler_.enable();
    during_ = fire_itself;
    a_.port->fire();
    EXPECT_TRUE(scheduler_.run_ready_blocks());
    EXPECT_EQ(ran_, std::string(Scheduler::max_passes, 'a'));
    bool timer_came = false;
    common::check(sd_event_add_time_relative(
                      loop_.get(), nullptr, CLOCK_MONOTONIC, 1000, 1,
                      [](sd_event_source*, std::uint64_t, void* came) {
                          *static_cast<bool*>(came) = true;
                          return 0;
                      },
                      &timer_came),
                  "timer");
    for (int i = 0; i < 1'000'000 && !timer_came; ++i)
        serve_once(0);
    EXPECT_TRUE(timer_came);
}

TEST_F(SchedulerTest, WhatABlockThrowsEndsTheLoopAndIsKept) {
    scheduler_.enable();
    during_ = [](Fenwa::Block&) { throw std::runtime_error("thrown on purpose"); };
    a_.port->fire();
    b_.port->fire();
    EXPECT_EQ(scheduler_.failure(), nullptr);
    EXPECT_TRUE(scheduler_.run_ready_blocks());  // so that nothing waits for an event any more
    EXPECT_EQ(sd_event_loop(loop_.get()), 0);
    EXPECT_EQ(ran_, "a");
    ASSERT_NE(scheduler_.failure(), nullptr);
    EXPECT_THROW(std::rethrow_exception(scheduler_.failure()), std::runtime_error);
}

TEST_F(SchedulerTest, ForgottenBlockRunsNoMoreAndTheOthersKeepTheirOrder) {
    scheduler_.enable();
    for (Fired* block : {&a_, &b_, &c_})
        block->port->fire();
    scheduler_.forget({&b_});
    b_.port->fire();
    serve();
    EXPECT_EQ(ran_, "ac");
    scheduler_.forget({&a_});
    a_.port->fire();
    c_.port->fire();
    serve();
    EXPECT_EQ(ran_, "acc");
}

TEST_F(SchedulerTest, BlockThatAnotherThreadFiresIsForgottenTooAndMayBeDestroyed) {
    scheduler_.enable();
    for (int i = 0; i < 300; ++i) {
        const auto block = std::make_unique<Fired>("x");
        Fenwa::HostAccess::adopt(*block, tools_, scheduler_.queue());
        std::atomic<bool> over = false;
        std::thread firing([&] {
            while (!over)
                block->port->fire();
        });
        std::this_thread::sleep_for(std::chrono::microseconds(i));
        scheduler_.forget({block.get()});
        over = true;
        firing.join();
    }
    a_.port->fire();
    serve_until_ran(1);
    EXPECT_EQ(ran_, "a");
}

/// Three runs at once, then one each 20 ms.
class PacedScheduler : public SchedulerTest {
  protected:
    PacedScheduler() : SchedulerTest({3, 50.0}) { scheduler_.enable(); }
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
    EXPECT_TRUE(scheduler_.is_paced(a_));
    EXPECT_FALSE(scheduler_.is_paced(b_));
    EXPECT_FALSE(scheduler_.is_paced(c_));
}

TEST_F(PacedScheduler, LoopSleepsWhileAllWait) {
    during_ = fire_itself;
    a_.port->fire();
    serve();
    int wake_ups = 0;
    while (ran_.size() < 3 + 5 && ++wake_ups < 1000)
        ASSERT_TRUE(serve_once(5'000'000));
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
    EXPECT_FALSE(serve_once(100'000));
    EXPECT_EQ(ran_, "aaaa");
}

TEST_F(PacedScheduler, ThoseThatWaitTakeTurns) {
    during_ = fire_itself;
    for (Fired* block : {&b_, &a_, &c_})
        block->port->fire();
    serve_until_ran(9 + 9);
    EXPECT_EQ(ran_, "bacbacbacbacbacbac");
}

TEST_F(PacedScheduler, ForgottenBlockWaitsNoMore) {
    during_ = fire_itself;
    for (Fired* block : {&a_, &b_})
        block->port->fire();
    serve();
    scheduler_.forget({&a_});
    serve_until_ran(6 + 2);
    EXPECT_EQ(ran_, "abababbb");
}

TEST_F(PacedScheduler, NothingThatWaitsRunsAfterItIsDisabled) {
    during_ = fire_itself;
    a_.port->fire();
    serve();
    scheduler_.disable();
    EXPECT_FALSE(serve_once(100'000));
    EXPECT_EQ(ran_, "aaa");
}

TEST_F(PacedScheduler, BlockThatWaitsRunsAtTheRateAndSoonAfterItsTurn) {
    std::vector<std::chrono::steady_clock::time_point> times;
    during_ = [&](Fenwa::Block&) {
        times.push_back(std::chrono::steady_clock::now());
        a_.port->fire();
    };
    a_.port->fire();
    const auto begin = std::chrono::steady_clock::now();
    serve_until_ran(3 + 21);
    const auto took = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(took, std::chrono::milliseconds(21 * 20));
    EXPECT_LT(took, std::chrono::seconds(4));  // a slow machine's time, not the brake's
    std::vector<std::chrono::steady_clock::duration> waits;
    for (std::size_t run = 4; run < times.size(); ++run)
        waits.push_back(times[run] - times[run - 1]);
    std::sort(waits.begin(), waits.end());
    // The median, because what others do on the machine adds to some.
    EXPECT_GT(waits[10], std::chrono::milliseconds(18));
    EXPECT_LT(waits[10], std::chrono::milliseconds(22));
}

/// One run at once, then a thousand in each second, with the processor time in the test's hands.
class RetryingScheduler : public SchedulerTest {
  protected:
    RetryingScheduler() : SchedulerTest({1, 1000.0}, true) {
        scheduler_.count_calls([this] { return calls_; });
        scheduler_.enable();
    }

    /// Serves the loop for so long. @returns how long it really was, in seconds.
    double serve_for(std::chrono::milliseconds time, const std::function<void()>& each_round = {}) {
        const auto begin = std::chrono::steady_clock::now();
        while (std::chrono::steady_clock::now() < begin + time) {
            serve_once(1000);
            if (each_round)
                each_round();
        }
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    }

    /// Has each run take this much processor time, in nanoseconds, and call the bus.
    void charge_runs(double nanoseconds) {
        during_ = [this, nanoseconds](Fenwa::Block&) {
            used_ += static_cast<std::uint64_t>(nanoseconds);
            ++calls_;
        };
    }
    /// Expects that all runs but the first ones, each within its block's own budget, kept to the
    /// budget of retries.
    void expect_within_budget(double first, double seconds, double run) const {
        const double retries = static_cast<double>(ran_.size()) - first;
        EXPECT_LE(retries * run, RetryBudget::burst + seconds * 1e9 * RetryBudget::share + run)
            << ran_;
    }

    std::uint64_t calls_ = 0;
};

TEST_F(RetryingScheduler, BlocksThatCallAgainAndAgainShareABudgetAndTakeTurns) {
    charge_runs(1e6);
    const double seconds = serve_for(std::chrono::milliseconds(1000), [this] {
        for (Fired* block : {&a_, &b_, &c_})
            block->port->fire();
    });
    EXPECT_GE(ran_.size(), 18U);
    expect_within_budget(3, seconds, 1e6);
    const std::string turns = ran_.substr(3);
    for (std::size_t i = 3; i < turns.size(); ++i)
        EXPECT_EQ(turns[i], turns[i - 3]) << ran_;
}

TEST_F(RetryingScheduler, BlockThatFiresItselfIsOneThatTriesAgain) {
    during_ = [this](Fenwa::Block& block) {
        used_ += 1'000'000;
        fire_itself(block);
    };
    a_.port->fire();
    const double seconds = serve_for(std::chrono::milliseconds(500));
    EXPECT_GE(ran_.size(), 8U);
    expect_within_budget(1, seconds, 1e6);
}

TEST_F(RetryingScheduler, WhatTheLoopDoesForThemBetweenTheirRunsIsChargedToo) {
    charge_runs(0);
    std::size_t answered = 0;
    const double seconds = serve_for(std::chrono::milliseconds(500), [&] {
        for (; answered < ran_.size(); ++answered)
            used_ += 1'000'000;
        a_.port->fire();
    });
    EXPECT_GE(ran_.size(), 8U);
    expect_within_budget(3, seconds, 1e6);
}

TEST_F(RetryingScheduler, BlockThatIsFedMoreThanItMayRunDoesNotShareTheBudget) {
    during_ = [this](Fenwa::Block& block) {
        if (&block != &a_)
            return;
        used_ += 1'000'000'000;  // a minute's budget
        ++calls_;
    };
    std::size_t least = 0;
    serve_for(std::chrono::milliseconds(300), [this] {
        a_.port->fire();
        c_.port->fire();
    });
    least = static_cast<std::size_t>(std::count(ran_.begin(), ran_.end(), 'c'));
    EXPECT_LE(ran_.size() - least, 2U);
    EXPECT_GE(least, 30U);
}

TEST_F(RetryingScheduler, BlockThatHasWaitedForItsTurnHasNotSavedUpRuns) {
    charge_runs(8e6);
    const double seconds = serve_for(std::chrono::milliseconds(1000), [this] { a_.port->fire(); });
    expect_within_budget(2, seconds, 8e6);
}

TEST_F(RetryingScheduler, BlockThatIsAnsweredLateTriesAgainAllTheSame) {
    // Its own budget is full again each time.
    charge_runs(4e6);
    auto answered = std::chrono::steady_clock::now();
    const double seconds = serve_for(std::chrono::milliseconds(1000), [&] {
        if (std::chrono::steady_clock::now() < answered)
            return;
        a_.port->fire();
        answered = std::chrono::steady_clock::now() + std::chrono::milliseconds(5);
    });
    expect_within_budget(1, seconds, 4e6);
}

TEST_F(RetryingScheduler, ForgottenBlockHasNoTurn) {
    charge_runs(1e6);
    const auto fire_all = [this] {
        for (Fired* block : {&a_, &b_})
            block->port->fire();
    };
    serve_for(std::chrono::milliseconds(200), fire_all);
    const std::size_t known = ran_.size();
    scheduler_.forget({&a_});
    serve_for(std::chrono::milliseconds(300), fire_all);
    EXPECT_GT(ran_.size(), known);
    EXPECT_EQ(ran_.find('a', known), ran_.npos) << ran_;
}

TEST_F(RetryingScheduler, NobodyWaitsForATurnWhenThePaceIsSet) {
    charge_runs(1e9);
    serve_for(std::chrono::milliseconds(50), [this] { a_.port->fire(); });
    const std::size_t known = ran_.size();
    scheduler_.set_rate_limit({1, 1000.0});
    serve();
    EXPECT_EQ(ran_.size(), known + 1);
}

/// Blocks whose matches are refused again and again.
class RefusedScheduler : public SchedulerTest {
  protected:
    explicit RefusedScheduler(const RateLimit& rate_limit = {}) : SchedulerTest(rate_limit) {
        scheduler_.follow_matches([this] { return asked_; });
        scheduler_.enable();
        for (Fired* block : {&a_, &b_}) {
            scheduler_.match_refused(*block);
            block->port->fire();
        }
    }

    std::size_t asked_ = 0;
};

TEST_F(RefusedScheduler, TheyTryOneByOneWhileOthersGoOn) {
    EXPECT_TRUE(serve_once(1'000'000));
    c_.port->fire();
    serve_rounds(20);
    EXPECT_TRUE(ran_ == "ac" || ran_ == "ca") << ran_;
    scheduler_.match_refused(a_);
    EXPECT_TRUE(scheduler_.is_paced(a_));
    EXPECT_FALSE(scheduler_.is_paced(c_));
    a_.port->fire();
    serve_rounds(20);
    EXPECT_EQ(ran_.size(), 2U) << ran_;
}

TEST_F(RefusedScheduler, NextFollowsAtOnceWhenATrySucceeds) {
    during_ = [this](Fenwa::Block& block) { scheduler_.match_installed(block); };
    const auto begin = std::chrono::steady_clock::now();
    serve_until_ran(2);
    EXPECT_EQ(ran_, "ab");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(4));
}

TEST_F(RefusedScheduler, NextFollowsAtOnceWhenTheAnswerComesLaterOrSomethingHasChangedForIt) {
    serve_rounds(20);
    EXPECT_EQ(ran_, "a");
    scheduler_.match_installed(a_);
    serve();
    EXPECT_EQ(ran_, "ab");
    for (Fired* block : {&a_, &b_}) {
        scheduler_.match_refused(*block);
        block->port->fire();
    }
    serve();
    EXPECT_EQ(ran_, "ab");
    scheduler_.let_try(b_);
    serve();
    EXPECT_EQ(ran_, "abb");
    scheduler_.set_rate_limit({});
    serve();
    EXPECT_EQ(ran_, "abba") << "nobody waits when the rate limit is set";
}

TEST_F(RefusedScheduler, ForgottenBlockDoesNotTry) {
    serve_rounds(20);
    EXPECT_EQ(ran_, "a");
    scheduler_.forget({&b_});
    scheduler_.match_installed(a_);
    c_.port->fire();
    serve_rounds(20);
    EXPECT_EQ(ran_, "ac");
}

class UnbrakedRefusedScheduler : public RefusedScheduler {
  protected:
    UnbrakedRefusedScheduler() : RefusedScheduler({0, 0.0}) {}
};

TEST_F(UnbrakedRefusedScheduler, TheyTryTogetherOnceTheOthersAreAnswered) {
    asked_ = 1;
    serve();
    EXPECT_EQ(ran_, "");
    asked_ = 0;
    scheduler_.match_refused(c_);
    serve();
    EXPECT_EQ(ran_, "ab");
    c_.port->fire();
    serve();
    EXPECT_EQ(ran_, "abc");
}

/// Blocks that wait for answers of the bus.
class HoldingScheduler : public SchedulerTest {
  protected:
    HoldingScheduler() {
        scheduler_.hold_for_answers([this] { return unanswered_; });
        scheduler_.enable();
    }

    std::size_t unanswered_ = Backpressure::high_watermark;
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

TEST_F(HoldingScheduler, ForgottenBlockIsNotHeld) {
    a_.port->fire();
    b_.port->fire();
    serve();
    scheduler_.forget({&a_});
    unanswered_ = 0;
    scheduler_.answered();
    serve();
    EXPECT_EQ(ran_, "b");
}

TEST_F(HoldingScheduler, BlocksGoOnWhenNoAnswerComes) {
    a_.port->fire();
    b_.port->fire();
    const auto begin = std::chrono::steady_clock::now();
    serve_until_ran(2);
    EXPECT_EQ(ran_, "ab");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(250));
    // Nobody waits any more.
    c_.port->fire();
    serve();
    EXPECT_EQ(ran_, "abc");
}

class UnbrakedScheduler : public SchedulerTest, public testing::WithParamInterface<RateLimit> {
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
                         testing::Values(RateLimit{0, 200.0}, RateLimit{64, 0.0},
                                         RateLimit{0, 0.0}),
                         [](const auto& limit) {
                             return limit.param.burst == 0
                                        ? limit.param.rate == 0.0 ? "both" : "burst"
                                        : "rate";
                         });

}  // namespace
}  // namespace host
