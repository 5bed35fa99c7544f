#pragma once

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "framework/algo-tools/connection_tools.hpp"
#include "framework/shared/host_access.hpp"
#include "framework/shared/log_sink.hpp"
#include "tests/abi/vtable.hpp"

namespace abi_test {

using Lines = std::vector<std::string>;
using Slots = std::set<std::size_t>;

/// On a bus that is not there, what is sent fails, which names the operation that sent it.
class BlockWithoutBusTest : public testing::Test {
  protected:
    BlockWithoutBusTest() {
        Fenwa::set_log_sink([this](int, const std::string& line) { lines_.push_back(line); });
    }
    ~BlockWithoutBusTest() override { Fenwa::set_log_sink({}); }

    void adopt(Fenwa::Block& block) { (void)Fenwa::HostAccess::adopt(block, tools, queue); }
    Lines take_lines() { return std::exchange(lines_, {}); }

    /// The slots in which the block does not have the operation of its base.
    static Slots overridden(const Fenwa::Block& block) {
        // Not the base itself: each library may have copies of what the base defines in its header.
        const Plain plain("plain", {});
        Slots slots;
        for (std::size_t slot = 0; slot <= 18; ++slot) {
            if (entry<void()>(&block, slot) != entry<void()>(&plain, slot))
                slots.insert(slot);
        }
        return slots;
    }

    Fenwa::ConnectionTools nowhere{nullptr};
    Fenwa::InitTools tools{&nowhere};
    Fenwa::ReadyQueue queue{[] {}};

  private:
    struct Plain final : Fenwa::Block {
        using Fenwa::Block::Block;
    };

    Lines lines_;
};

}  // namespace abi_test
