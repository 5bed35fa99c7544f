#pragma once

#include "fenwa/slot.hpp"

namespace common {

/// `check(sd_event_new(out(loop)), "…")`.
template <class Object, Object* (*Unref)(Object*)>
[[nodiscard]] Object** out(Fenwa::Handle<Object, Unref>& handle) noexcept {
    return handle.out();
}

}  // namespace common
