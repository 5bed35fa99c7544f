#pragma once

#include <utility>
#include <vector>

#include "fenwa/slot.hpp"

namespace blocks {

/// Slots that a block has replaced by newer ones in the same field. Their replies must reach the
/// block as long as it works, and never afterwards.
class SupersededSlots {
  public:
    /// Takes over the content of `slot`, if any, and leaves it empty.
    void keep(Fenwa::Slot& slot) {
        if (slot)
            slots_.push_back(std::move(slot));
    }

    void release() noexcept { slots_.clear(); }

  private:
    std::vector<Fenwa::Slot> slots_;
};

/// The calls of a block that starts new ones in one field while earlier ones may be unanswered.
/// Holds the replaced slots until every call has been answered.
class OverlappingCalls {
  public:
    /// Empties `slot`, the newest call's, for the next one.
    void make_room(Fenwa::Slot& slot) {
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
    /// Counts a reply. Called once for each.
    void answered() noexcept {
        if (unanswered_ > 0 && --unanswered_ == 0)
            superseded_.release();
    }
    /// Releases all replaced slots and forgets the unanswered calls.
    void release() noexcept {
        superseded_.release();
        unanswered_ = 0;
    }

  private:
    SupersededSlots superseded_;
    int unanswered_ = 0;
};

}  // namespace blocks
