#pragma once

#include <systemd/sd-bus.h>

#include <cstddef>
#include <utility>

#include "fenwa/api.hpp"

namespace Fenwa {

/// Owns one reference to an object of libsystemd and releases it when it is reset, assigned to or
/// destroyed. As large as a pointer. Moves, does not copy. One thread at a time.
/// @tparam Unref releases a reference, such as `sd_bus_slot_unref`.
template <class Object, Object* (*Unref)(Object*)>
class Handle {
  public:
    Handle() = default;
    Handle(std::nullptr_t) noexcept {}  // NOLINT(google-explicit-constructor): as a null pointer
    /// Takes over the caller's reference; null for none.
    explicit Handle(Object* object) noexcept : object_(object) {}
    Handle(Handle&& other) noexcept : object_(other.release()) {}
    Handle& operator=(Handle&& other) noexcept {
        reset(other.release());
        return *this;
    }
    ~Handle() { reset(); }

    /// Releases what is held, if anything, and takes over the caller's reference; null for none.
    void reset(Object* object = nullptr) noexcept {
        if (object_ != nullptr)
            Unref(object_);
        object_ = object;
    }

    /// Hands the reference to the caller. Null when nothing is held.
    [[nodiscard]] Object* release() noexcept { return std::exchange(object_, nullptr); }

    /// Null when nothing is held; stays owned by the handle.
    [[nodiscard]] Object* get() const noexcept { return object_; }
    /// Only while something is held.
    [[nodiscard]] Object& operator*() const noexcept { return *object_; }

    /// Releases what is held, if anything.
    /// @returns the place for a function that hands out a reference, valid as long as the handle.
    [[nodiscard]] Object** out() noexcept {
        reset();
        return &object_;
    }

    explicit operator bool() const noexcept { return object_ != nullptr; }
    friend bool operator==(const Handle& handle, std::nullptr_t) noexcept { return !handle; }

  private:
    Object* object_ = nullptr;
};

/// Holds a call, a match or an object on the bus: its callback is called only while the slot is
/// held. May be reset inside the callback, where the message stays readable.
using Slot = Handle<sd_bus_slot, sd_bus_slot_unref>;
static_assert(sizeof(Slot) == sizeof(sd_bus_slot*));

/// Holds a message, such as the reply to a blocking call.
using Message = Handle<sd_bus_message, sd_bus_message_unref>;

}  // namespace Fenwa
