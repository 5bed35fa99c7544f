#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <utility>

#include "fenwa/testkit/block_driver.hpp"
#include "framework/shared/host_access.hpp"
#include "tests/support/bus_messages.hpp"
#include "tests/support/debug_store_recorder.hpp"
#include "tests/support/fake_tools.hpp"
#include "tests/support/framework_interception.hpp"
#include "tests/support/log_recorder.hpp"
#include "tests/support/sdbus_interception.hpp"

namespace support {

/// Drives one block whose effects are in the journal; the test calls the block's operations itself.
template <class T>
class BlockDriver : public Fenwa::testkit::Driver {
  public:
    template <class... Arguments>
    explicit BlockDriver(Fenwa::SDBusTools& tools, Arguments&&... arguments)
        : Driver(tools),
          block_(
              Fenwa::testkit::build_block<T>(this->tools(), std::forward<Arguments>(arguments)...)
                  .release()) {
        adopt(std::unique_ptr<Fenwa::Block>(block_));
        EXPECT_TRUE(refused_exports().empty());
    }
    ~BlockDriver() override { destroy(); }

    T* operator->() { return block_; }
    T& operator*() { return *block_; }

    /// Whether the block has asked to be run since the last time. Takes its fires.
    [[nodiscard]] bool woken() {
        (void)journal_->take(effect::fire);
        const bool armed = arm();
        disarm();
        return armed;
    }

    /// Runs the block as a host does that it has asked to: its marks are triggered during the run,
    /// and not the block's to take away. Takes the fires before it.
    [[nodiscard]] bool run_woken() {
        (void)journal_->take(effect::fire);
        EXPECT_TRUE(arm()) << "nothing has woken the block";
        const auto triggered = triggered_ports(*block_);
        const bool result = block_->run();
        EXPECT_EQ(triggered_ports(*block_), triggered) << "the block has reset a port";
        disarm();
        return result;
    }

  private:
    std::shared_ptr<EffectJournal> journal_ = EffectJournal::shared();
    T* block_;  ///< owned by the base
};

/// Where everything about a block is recorded, in one journal.
struct Recorders {
    Recorders();
    Recorders(const Recorders&) = delete;
    Recorders& operator=(const Recorders&) = delete;
    ~Recorders();

    std::shared_ptr<EffectJournal> journal = EffectJournal::shared();
    LogRecorder log;
    DebugStoreRecorder debug;
    Messages messages;
    Interception bus;
    FakeTools tools{messages.bus(), bus};
};

/// Base of the tests of a block.
class BlockTest : public testing::Test {
  protected:
    using Journal = std::vector<std::string>;

    BlockTest();
    ~BlockTest() override;
    void TearDown() override;

    /// All effects since the last time, in their order.
    [[nodiscard]] Journal take() { return journal.take(); }
    /// The steps of reading bodies since the last time.
    [[nodiscard]] Journal readings() { return journal.take(effect::reading); }
    /// Puts behind each entry what `state` gives at the moment of the effect.
    template <class State>
    void remark(State state) {
        journal.remark_with([state](const std::string& /*entry*/) {
            return " | " + testing::PrintToString(state());
        });
    }
    /// A connection other than that of the messages, on which nothing is really sent.
    [[nodiscard]] sd_bus* other_bus() { return reinterpret_cast<sd_bus*>(&other_place_); }

    support::Recorders recorders;
    EffectJournal& journal = *recorders.journal;
    LogRecorder& log = recorders.log;
    Messages& messages = recorders.messages;
    Interception& bus = recorders.bus;

  private:
    int other_place_ = 0;
};

}  // namespace support
