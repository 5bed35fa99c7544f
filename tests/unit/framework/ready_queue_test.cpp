#include "framework/shared/ready_queue.hpp"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>

#include "fenwa/ports.hpp"
#include "framework/shared/host_access.hpp"

namespace {

using Fenwa::HostAccess;
using Fenwa::ReadyQueue;
using Blocks = std::vector<Fenwa::Block*>;

/// A block with two events and two inputs.
struct EventBlock : Fenwa::Block {
    EventBlock() : Block("event", {}) {}

    Fenwa::EventPort* event = make_eventport("event");
    Fenwa::EventPort* other_event = make_eventport("other");
    Fenwa::InPort<int>* in = Fenwa::add_inport<int>(*this, "in");
    Fenwa::InPort<int>* quiet = Fenwa::add_inport<int>(*this, "quiet", false);
};

class ReadyQueueTest : public testing::Test {
  protected:
    ReadyQueueTest() {
        for (EventBlock& block : blocks)
            EXPECT_TRUE(HostAccess::adopt(block, tools, queue).empty());
    }

    Blocks take() {
        Blocks ready;
        queue.take(ready);
        return ready;
    }

    std::atomic<int> wake_ups = 0;
    ReadyQueue queue{[this] { ++wake_ups; }};
    const Fenwa::InitTools tools{nullptr};
    std::array<EventBlock, 3> blocks;
};

TEST_F(ReadyQueueTest, HoldsBlocksInTheOrderInWhichTheyBecameReady) {
    EXPECT_EQ(take(), Blocks{});
    EXPECT_EQ(wake_ups, 0);
    for (const std::size_t index : {2U, 0U, 1U, 2U})
        blocks[index].event->fire();
    EXPECT_EQ(wake_ups, 1) << "only the first one wakes the host";
    EXPECT_EQ(take(), (Blocks{&blocks[2], &blocks[0], &blocks[1]}));
    EXPECT_EQ(take(), Blocks{});
    ReadyQueue::about_to_run(blocks[2]);
    blocks[2].event->fire();
    EXPECT_EQ(wake_ups, 2);
}

TEST_F(ReadyQueueTest, HoldsABlockOnceUntilItIsAboutToRun) {
    blocks[0].event->fire();
    blocks[0].other_event->fire();
    blocks[0].event->fire();
    EXPECT_EQ(take(), (Blocks{&blocks[0]}));
    blocks[0].event->fire();
    EXPECT_EQ(take(), Blocks{}) << "the run that is to come serves this one too";
    ReadyQueue::about_to_run(blocks[0]);
    EXPECT_TRUE(HostAccess::arm(blocks[0]));
    blocks[0].event->fire();
    EXPECT_EQ(take(), (Blocks{&blocks[0]})) << "what is fired in a run makes another";
}

TEST_F(ReadyQueueTest, TakesInputsInOnlyWhenTheyTrigger) {
    HostAccess::notify(*blocks[0].quiet, blocks[0]);
    EXPECT_EQ(take(), Blocks{});
    HostAccess::notify(*blocks[0].in, blocks[0]);
    EXPECT_EQ(take(), (Blocks{&blocks[0]}));
    EXPECT_TRUE(HostAccess::arm(blocks[0]));
    EXPECT_TRUE(blocks[0].quiet->is_triggered()) << "the block sees it when it runs anyway";
}

TEST_F(ReadyQueueTest, KeepsTheFiresOfAConstructorUntilTheBlockIsTakenOver) {
    EventBlock late;
    late.event->fire();
    late.event->fire();
    EXPECT_EQ(take(), Blocks{});
    EXPECT_EQ(wake_ups, 0);
    EXPECT_TRUE(HostAccess::adopt(late, tools, queue).empty());
    EXPECT_EQ(take(), (Blocks{&late}));
    EXPECT_EQ(wake_ups, 1);
}

TEST_F(ReadyQueueTest, LosesNoFireOfManyThreads) {
    constexpr std::size_t fires = 100'000;
    struct Firing {  // how often a thread has fired, and the count that the last run saw
        EventBlock* block;
        Fenwa::EventPort* port;
        std::atomic<std::size_t> fired{0};
        std::size_t seen = 0;
    };
    Firing firings[] = {{&blocks[0], blocks[0].event},
                        {&blocks[0], blocks[0].other_event},
                        {&blocks[1], blocks[1].event},
                        {&blocks[1], blocks[1].other_event}};
    std::atomic<std::size_t> running{std::size(firings)};
    std::vector<std::thread> threads;
    for (Firing& firing : firings) {
        threads.emplace_back([&firing, &running] {
            for (std::size_t count = 1; count <= fires; ++count) {
                firing.fired.store(count, std::memory_order_relaxed);
                firing.port->fire();
            }
            running.fetch_sub(1);
        });
    }

    bool twice = false;
    const auto serve = [&] {
        const Blocks all_ready = take();
        twice = twice || all_ready.size() > 2;
        for (Fenwa::Block* ready : all_ready) {
            ReadyQueue::about_to_run(*ready);
            HostAccess::arm(*ready);
            for (Firing& firing : firings) {
                if (firing.block == ready && firing.port->is_triggered())
                    firing.seen = firing.fired.load(std::memory_order_relaxed);
            }
            HostAccess::disarm(*ready);
        }
    };
    while (running.load() > 0)
        serve();
    for (std::thread& thread : threads)
        thread.join();
    serve();

    for (const Firing& firing : firings)
        EXPECT_EQ(firing.seen, fires) << "no run followed the last fire";
    EXPECT_FALSE(twice) << "the queue held a block twice";
}

TEST_F(ReadyQueueTest, HoldsABlockOnceWhenTwoThreadsFireAtTheSameMoment) {
    constexpr int rounds = 20'000;
    EventBlock& block = blocks[0];
    std::atomic<int> round{0};
    std::atomic<int> fired{0};
    const auto fire_in_every_round = [&](Fenwa::EventPort* port) {
        for (int next = 1; next <= rounds; ++next) {
            // Gives way only after a while: the two are to go off together.
            for (int spins = 0; round.load() < next; ++spins) {
                if (spins > 500)
                    std::this_thread::yield();
            }
            port->fire();
            fired.fetch_add(1);
        }
    };
    std::thread first(fire_in_every_round, block.event);
    std::thread second(fire_in_every_round, block.other_event);
    int alone = 0;
    for (int next = 1; next <= rounds; ++next) {
        round.store(next);
        while (fired.load() < 2 * next)
            std::this_thread::yield();
        alone += take() == Blocks{&block} ? 1 : 0;
        ReadyQueue::about_to_run(block);
    }
    first.join();
    second.join();
    EXPECT_EQ(alone, rounds);
}

}  // namespace
