#include "framework/shared/ready_queue.hpp"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>

#include "framework/shared/host_access.hpp"

namespace {

using Fenwa::HostAccess;
using Fenwa::ReadyQueue;
using Blocks = std::vector<Fenwa::Block*>;

/// A block with two events and an input.
class EventBlock : public Fenwa::Block {
  public:
    EventBlock()
        : Block("event", {}),
          event(make_eventport("event")),
          other_event(make_eventport("other")),
          in(new Fenwa::InPort<int>("in", Fenwa::datatype_of<int>(), true)),
          quiet(new Fenwa::InPort<int>("quiet", Fenwa::datatype_of<int>(), false)) {
        add_inport(std::unique_ptr<Fenwa::InPortProvider>(in));
        add_inport(std::unique_ptr<Fenwa::InPortProvider>(quiet));
    }

    Fenwa::EventPort* event;
    Fenwa::EventPort* other_event;
    Fenwa::InPort<int>* in;
    Fenwa::InPort<int>* quiet;
};

class ReadyQueueTest : public testing::Test {
  protected:
    ReadyQueueTest() {
        for (EventBlock& block : blocks)
            EXPECT_TRUE(HostAccess::adopt(block, tools, queue).empty());
    }

    int wake_ups = 0;
    ReadyQueue queue{[this] { ++wake_ups; }};
    const Fenwa::InitTools tools{nullptr};
    std::array<EventBlock, 3> blocks;
};

TEST_F(ReadyQueueTest, IsEmptyAtFirst) {
    EXPECT_EQ(queue.take(), Blocks{});
    EXPECT_EQ(wake_ups, 0);
}

TEST_F(ReadyQueueTest, HoldsBlocksInTheOrderInWhichTheyBecameReady) {
    blocks[2].event->fire();
    blocks[0].event->fire();
    blocks[1].event->fire();
    blocks[2].event->fire();
    EXPECT_EQ(queue.take(), (Blocks{&blocks[2], &blocks[0], &blocks[1]}));
    EXPECT_EQ(queue.take(), Blocks{});
}

TEST_F(ReadyQueueTest, WakesTheHostOnlyWhenItWasEmpty) {
    blocks[0].event->fire();
    blocks[1].event->fire();
    EXPECT_EQ(wake_ups, 1);
    (void)queue.take();
    blocks[2].event->fire();
    EXPECT_EQ(wake_ups, 2);
}

TEST_F(ReadyQueueTest, HoldsABlockOnceUntilItIsAboutToRun) {
    blocks[0].event->fire();
    blocks[0].other_event->fire();
    blocks[0].event->fire();
    EXPECT_EQ(queue.take(), (Blocks{&blocks[0]}));
    blocks[0].event->fire();
    EXPECT_EQ(queue.take(), Blocks{}) << "the run that is to come serves this one too";
    ReadyQueue::about_to_run(blocks[0]);
    EXPECT_TRUE(HostAccess::arm(blocks[0]));
    blocks[0].event->fire();
    EXPECT_EQ(queue.take(), (Blocks{&blocks[0]})) << "what is fired in a run makes another";
}

TEST_F(ReadyQueueTest, TakesInputsInOnlyWhenTheyTrigger) {
    HostAccess::notify(*blocks[0].quiet, blocks[0]);
    EXPECT_EQ(queue.take(), Blocks{});
    HostAccess::notify(*blocks[0].in, blocks[0]);
    EXPECT_EQ(queue.take(), (Blocks{&blocks[0]}));
    EXPECT_TRUE(HostAccess::arm(blocks[0]));
    EXPECT_TRUE(blocks[0].quiet->is_triggered()) << "the block sees it when it runs anyway";
}

TEST_F(ReadyQueueTest, KeepsTheFiresOfAConstructorUntilTheBlockIsTakenOver) {
    EventBlock late;
    late.event->fire();
    late.event->fire();
    EXPECT_EQ(queue.take(), Blocks{});
    EXPECT_EQ(wake_ups, 0);
    EXPECT_TRUE(HostAccess::adopt(late, tools, queue).empty());
    EXPECT_EQ(queue.take(), (Blocks{&late}));
    EXPECT_EQ(wake_ups, 1);
}

TEST_F(ReadyQueueTest, LosesNoFireOfManyThreads) {
    constexpr std::size_t threads = 4;
    constexpr std::size_t fires = 100'000;
    struct Firing {  // how often a thread has fired, and the count that the last run saw
        std::atomic<std::size_t> fired{0};
        std::size_t seen = 0;
    };
    std::array<Firing, threads> firings;
    std::array<EventBlock, 2> shared;  // two threads each
    std::atomic<int> wakes{0};
    ReadyQueue host_queue{[&wakes] { wakes.fetch_add(1); }};
    for (EventBlock& block : shared)
        EXPECT_TRUE(HostAccess::adopt(block, tools, host_queue).empty());

    std::atomic<std::size_t> running{threads};
    std::vector<std::thread> firing_threads;
    for (std::size_t index = 0; index < threads; ++index) {
        firing_threads.emplace_back([&, index] {
            EventBlock& block = shared[index / 2];
            Fenwa::EventPort* const port = index % 2 == 0 ? block.event : block.other_event;
            for (std::size_t count = 1; count <= fires; ++count) {
                firings[index].fired.store(count, std::memory_order_relaxed);
                port->fire();
            }
            running.fetch_sub(1);
        });
    }

    std::size_t runs = 0;
    bool twice = false;
    const auto serve = [&] {
        const Blocks all_ready = host_queue.take();
        twice = twice || all_ready.size() > shared.size();
        for (Fenwa::Block* ready : all_ready) {
            auto& block = static_cast<EventBlock&>(*ready);
            ReadyQueue::about_to_run(block);
            HostAccess::arm(block);
            ++runs;
            const std::size_t first = &block == &shared[0] ? 0 : 2;
            if (block.event->is_triggered())
                firings[first].seen = firings[first].fired.load(std::memory_order_relaxed);
            if (block.other_event->is_triggered())
                firings[first + 1].seen = firings[first + 1].fired.load(std::memory_order_relaxed);
            HostAccess::disarm(block);
        }
    };
    while (running.load() > 0)
        serve();
    for (std::thread& thread : firing_threads)
        thread.join();
    serve();

    for (const Firing& firing : firings)
        EXPECT_EQ(firing.seen, fires) << "the last fire was followed by no run";
    EXPECT_FALSE(twice) << "a block stood in the queue twice";
    EXPECT_GE(runs, 2U);
    EXPECT_GE(wakes.load(), 1);
    EXPECT_EQ(host_queue.take(), Blocks{});
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
        alone += queue.take() == Blocks{&block} ? 1 : 0;
        ReadyQueue::about_to_run(block);
    }
    first.join();
    second.join();
    EXPECT_EQ(alone, rounds);
}

}  // namespace
