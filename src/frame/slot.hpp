#pragma once

#include <systemd/sd-bus.h>

#include <cassert>
#include <utility>
#include <vector>

namespace blocks {

/// Owns one sd-bus slot: unrefs it when it is reset or destroyed. As large as a pointer.
class Slot {
  public:
    Slot() = default;
    Slot(Slot&& other) noexcept : slot_(std::exchange(other.slot_, nullptr)) {}
    Slot& operator=(Slot&& other) noexcept {
        std::swap(slot_, other.slot_);
        return *this;
    }
    ~Slot() { reset(); }

    /// Unrefs the slot, if any: its callback is not called any more. Allowed inside the slot's own
    /// callback, where the message stays readable.
    void reset() noexcept { slot_ = sd_bus_slot_unref(slot_); }

    /// Out-pointer for an sd-bus function; the handle must be empty, and stays so on failure.
    [[nodiscard]] sd_bus_slot** out() noexcept {
        assert(slot_ == nullptr);
        return &slot_;
    }

    explicit operator bool() const noexcept { return slot_ != nullptr; }

  private:
    sd_bus_slot* slot_ = nullptr;
};

static_assert(sizeof(Slot) == sizeof(sd_bus_slot*));

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
