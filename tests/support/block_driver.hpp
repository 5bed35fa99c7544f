#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <utility>

#include "fenwa/tools.hpp"
#include "framework/shared/host_access.hpp"
#include "framework/shared/ready_queue.hpp"
#include "tests/support/bus_messages.hpp"
#include "tests/support/debug_store_recorder.hpp"
#include "tests/support/log_recorder.hpp"
#include "tests/support/sdbus_interception.hpp"

namespace support {

/// Tools over a given connection, for blocks that must make no blocking call.
class FakeTools final : public Fenwa::SDBusTools {
  public:
    explicit FakeTools(sd_bus* bus) : bus_(bus) {}

    void call_method(const char* /*destination*/, const char* /*path*/, const char* /*interface*/,
                     const char* member, sd_bus_message** /*reply*/, const char* /*types*/,
                     ...) override {
        ADD_FAILURE() << "unexpected blocking call of " << member;
    }
    void get_property(const char* /*destination*/, const char* /*path*/, const char* /*interface*/,
                      const char* member, sd_bus_message** /*reply*/,
                      const char* /*type*/) override {
        ADD_FAILURE() << "unexpected blocking read of " << member;
    }
    sd_bus* get_bus() override { return bus_; }

  private:
    sd_bus* bus_;
};

/// Builds one block and takes it over as a host does; the test calls its operations.
template <class T>
class BlockDriver {
  public:
    template <class... Arguments>
    explicit BlockDriver(Fenwa::SDBusTools& tools, Arguments&&... arguments)
        : tools_(&tools), block_(std::make_unique<T>(std::forward<Arguments>(arguments)...)) {
        EXPECT_TRUE(Fenwa::HostAccess::adopt(*block_, tools_, queue_).empty());
    }

    T* operator->() { return block_.get(); }
    T& operator*() { return *block_; }

    /// Whether the block has asked to be run since the last time.
    [[nodiscard]] bool woken() {
        const bool armed = arm();
        Fenwa::HostAccess::disarm(*block_);
        return armed;
    }

    /// Runs the block as a host does that it has asked to: its marks are triggered during the run.
    [[nodiscard]] bool run_woken() {
        EXPECT_TRUE(arm()) << "nothing has woken the block";
        const bool result = block_->run();
        Fenwa::HostAccess::disarm(*block_);
        return result;
    }

    void destroy() { block_.reset(); }

  private:
    /// Takes what is pending over for a run. @returns whether there is any.
    bool arm() {
        const auto ready = queue_.take();
        for (Fenwa::Block* block : ready)
            Fenwa::ReadyQueue::about_to_run(*block);
        const bool armed = Fenwa::HostAccess::arm(*block_);
        EXPECT_EQ(armed, !ready.empty());
        return armed;
    }

    Fenwa::ReadyQueue queue_{[] {}};
    Fenwa::InitTools tools_;
    std::unique_ptr<T> block_;
};

/// Where everything about a block is recorded: what it sends, logs and tells the debug-data store.
struct Recorders {
    LogRecorder log;
    DebugStoreRecorder debug;
    Messages messages;
    Interception bus;
    FakeTools tools{messages.bus()};
};

}  // namespace support
