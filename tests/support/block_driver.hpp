#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "framework/shared/host_access.hpp"
#include "framework/shared/ready_queue.hpp"
#include "tests/support/bus_messages.hpp"
#include "tests/support/debug_store_recorder.hpp"
#include "tests/support/fake_tools.hpp"
#include "tests/support/framework_interception.hpp"
#include "tests/support/log_recorder.hpp"
#include "tests/support/sdbus_interception.hpp"

namespace support {

/// Builds one block and takes it over as a host does; the test calls its operations. A constructor
/// that takes the tools behind the given arguments gets them.
template <class T>
class BlockDriver {
  public:
    template <class... Arguments>
    explicit BlockDriver(Fenwa::SDBusTools& tools, Arguments&&... arguments)
        : tools_(&tools), block_(build(std::forward<Arguments>(arguments)...)) {
        EXPECT_TRUE(Fenwa::HostAccess::adopt(*block_, tools_, queue_).empty());
    }

    T* operator->() { return block_.get(); }
    T& operator*() { return *block_; }

    /// Whether the block has asked to be run since the last time. Takes its fires.
    [[nodiscard]] bool woken() {
        (void)journal_->take(effect::fire);
        const bool armed = arm();
        Fenwa::HostAccess::disarm(*block_);
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
        Fenwa::HostAccess::disarm(*block_);
        return result;
    }

    void destroy() { block_.reset(); }

  private:
    /// Takes what is pending over for a run. @returns whether there is any.
    bool arm() {
        std::vector<Fenwa::Block*> ready;
        queue_.take(ready);
        for (Fenwa::Block* block : ready)
            Fenwa::ReadyQueue::about_to_run(*block);
        const bool armed = Fenwa::HostAccess::arm(*block_);
        EXPECT_EQ(armed, !ready.empty());
        return armed;
    }

    template <class... Arguments>
    std::unique_ptr<T> build(Arguments&&... arguments) {
        if constexpr (std::is_constructible_v<T, Arguments..., const Fenwa::InitTools&>)
            return in_used_memory(std::forward<Arguments>(arguments)..., std::as_const(tools_));
        else
            return in_used_memory(std::forward<Arguments>(arguments)...);
    }

    /// All bytes there are 1 before, or 0 every second time, so that a missing initial value shows.
    template <class... Arguments>
    static std::unique_ptr<T> in_used_memory(Arguments&&... arguments) {
        static int byte = 0;
        byte = 1 - byte;
        void* const place = ::operator new(sizeof(T));
        std::memset(place, byte, sizeof(T));
        try {
            return std::unique_ptr<T>(new (place) T(std::forward<Arguments>(arguments)...));
        } catch (...) {
            ::operator delete(place);
            throw;
        }
    }

    std::shared_ptr<EffectJournal> journal_ = EffectJournal::shared();
    Fenwa::ReadyQueue queue_{[] {}};
    Fenwa::InitTools tools_;
    std::unique_ptr<T> block_;
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
