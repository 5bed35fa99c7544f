#pragma once

#include <systemd/sd-bus.h>

#include <cassert>
#include <utility>

namespace blocks {

/// Owns one reference to an object of sd-bus and gives it up when it is reset or destroyed. As
/// large as a pointer.
template <class Object, Object* (*Unref)(Object*)>
class SdBusHandle {
  public:
    SdBusHandle() = default;
    SdBusHandle(SdBusHandle&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    SdBusHandle& operator=(SdBusHandle&& other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~SdBusHandle() { reset(); }

    /// Gives up what is held, if anything.
    void reset() noexcept {
        if (object_ != nullptr)
            object_ = Unref(object_);
    }

    /// Null when nothing is held; stays owned by the handle.
    [[nodiscard]] Object* get() const noexcept { return object_; }

    /// Out-pointer for a function that hands out a reference; the handle must be empty, and stays
    /// so on failure.
    [[nodiscard]] Object** out() noexcept {
        assert(object_ == nullptr);
        return &object_;
    }

    explicit operator bool() const noexcept { return object_ != nullptr; }

  private:
    Object* object_ = nullptr;
};

/// Holds one slot: while it does, the slot's callback may be called. May be reset inside the slot's
/// own callback, where the message stays readable.
using Slot = SdBusHandle<sd_bus_slot, sd_bus_slot_unref>;
static_assert(sizeof(Slot) == sizeof(sd_bus_slot*));

/// Holds one message, such as the reply to a blocking call.
using Message = SdBusHandle<sd_bus_message, sd_bus_message_unref>;

}  // namespace blocks
