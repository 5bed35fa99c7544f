#pragma once

#include <utility>
#include <vector>

#include "src/frame/sdbus_handle.hpp"

namespace blocks {

/// Slots that a block has replaced by newer ones in the same field. What they still deliver is
/// wanted as long as the block works, and must never reach it afterwards.
class SupersededSlots {
  public:
    /// Takes over what `slot` holds, if anything, and leaves it empty.
    void keep(Slot& slot) {
        if (slot)
            slots_.push_back(std::move(slot));
    }

    void release() noexcept { slots_.clear(); }

  private:
    std::vector<Slot> slots_;
};

}  // namespace blocks
