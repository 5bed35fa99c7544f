#include "tests/support/effect_journal.hpp"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <system_error>

#include "tests/support/block_driver.hpp"

namespace {

using Journal = std::vector<std::string>;
namespace effect = support::effect;

/// A block that does a little of everything.
class BusyBlock final : public Fenwa::Block {
  public:
    explicit BusyBlock(const Fenwa::BlockConfiguration& config)
        : Block("busy", config), event(make_eventport("event")), out_(*add_output()) {
        add_inport(std::make_unique<Fenwa::InPort<int>>("in", Fenwa::datatype_of<int>(), true));
        static const sd_bus_vtable nothing[] = {SD_BUS_VTABLE_START(0), SD_BUS_VTABLE_END};
        add_dbus("/a", "a.b", nothing, nullptr);
        out_.publish(config.getDouble("first", 0.1));
        event->fire();
    }
    bool run() override {
        out_.publish(2.5);
        Fenwa::ilog(4) << "published";
        if (get_inport("in")->is_triggered())
            get_inport("in")->reset(reset);
        out_.publish(2.5);
        Block::stop();
        return true;
    }
    Fenwa::EventPort* event;
    bool reset = false;

  private:
    Fenwa::OutPort<double>* add_output() {
        auto port = std::make_unique<Fenwa::OutPort<double>>("out", Fenwa::datatype_of<double>());
        return static_cast<Fenwa::OutPort<double>*>(add_outport(std::move(port)));
    }

    Fenwa::OutPort<double>& out_;
};

class EffectJournalTest : public support::BlockTest {};

TEST_F(EffectJournalTest, TellsEffectsOfAllKindsInTheirOrder) {
    BusyBlock block(support::observed({}));
    EXPECT_EQ(take(), (Journal{"event event", "output out", "input in", "export /a a.b",
                               "double first or a default", "publish out = 0.1", "fire event"}));
    block.run();
    EXPECT_EQ(take(), (Journal{"publish out = 2.5", "4 published", "look at in",
                               "publish out = 2.5", "Block::stop"}));
}

TEST_F(EffectJournalTest, GivesOneKindAndKeepsTheOthers) {
    BusyBlock block({});
    block.run();
    EXPECT_EQ(log.take(), (Journal{"4 published"}));
    EXPECT_EQ(journal.take(effect::fire | effect::look), (Journal{"fire event", "look at in"}));
    EXPECT_EQ(take().size(), 8U);
}

TEST_F(EffectJournalTest, PutsWhatATestWantsToKnowBehindEachEntry) {
    const BusyBlock block({});
    (void)take();
    int known = 1;
    remark([&known] { return known++; });
    block.event->fire();
    block.event->fire();
    EXPECT_EQ(take(), (Journal{"fire event | 1", "fire event | 2"}));
}

TEST_F(EffectJournalTest, ForgetsThePortsOfABlockThatIsGone) {
    std::make_unique<BusyBlock>(Fenwa::BlockConfiguration{})->event->fire();
    EXPECT_EQ(take().back(), "fire event");
    EXPECT_EQ(take(), Journal{});
}

TEST_F(EffectJournalTest, FailsATestWhoseBlockResetsAPort) {
    support::BlockDriver<BusyBlock> block(recorders.tools, Fenwa::BlockConfiguration{});
    block->reset = true;
    Fenwa::HostAccess::notify(*block->get_inport("in"), *block);
    EXPECT_NONFATAL_FAILURE(EXPECT_TRUE(block.run_woken()), "the block has reset a port");
    (void)take();
}

TEST_F(EffectJournalTest, RecordsOneMutexAndLetsItFail) {
    std::mutex mutex;
    std::mutex other;
    support::LockRecorder recorder(mutex.native_handle());
    {
        const std::scoped_lock lock(other);
        const std::lock_guard recorded(mutex);
    }
    EXPECT_EQ(take(), (Journal{"lock", "unlock"}));
    recorder.fail_next(EDEADLK);
    EXPECT_THROW(mutex.lock(), std::system_error);
    EXPECT_TRUE(mutex.try_lock());
    mutex.unlock();
    EXPECT_EQ(take(), (Journal{"unlock"}));
}

TEST(RecorderTest, FailsATestThatDoesNotLookAtALineOrAtAnUnrefOfNothing) {
    EXPECT_NONFATAL_FAILURE(
        {
            const support::LogRecorder log;
            Fenwa::ilog(2) << "text";
        },
        "nobody looked at: 2 text");
    EXPECT_NONFATAL_FAILURE(
        {
            const support::Interception bus;
            sd_bus_slot_unref(nullptr);
        },
        "nobody looked at: unref of no slot");
    EXPECT_NONFATAL_FAILURE(
        {
            const support::Interception bus;
            sd_bus_message_unref(nullptr);
        },
        "nobody looked at: unref of no message");
}

}  // namespace
