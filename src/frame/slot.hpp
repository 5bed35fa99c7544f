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

/// The calls of a block that starts new ones in one field while earlier ones may be unanswered.
/// Holds the replaced slots no longer than until every call has been answered.
class OverlappingCalls {
  public:
    /// Empties `slot`, the newest call's, for the next one.
    void make_room(Slot& slot) {
        if (unanswered_ == 0)
            slot.reset();
        else
            superseded_.keep(slot);
    }
    /// Counts a call, unless `r`, the result of sending it, is negative. @returns `r`.
    int sent(int r) noexcept {
        unanswered_ += r < 0 ? 0 : 1;
        return r;
    }
    /// To be called once for each reply.
    void answered() noexcept {
        if (unanswered_ > 0 && --unanswered_ == 0)
            superseded_.release();
    }
    /// No reply is wanted any more.
    void release() noexcept {
        superseded_.release();
        unanswered_ = 0;
    }

  private:
    SupersededSlots superseded_;
    int unanswered_ = 0;
};

}  // namespace blocks
