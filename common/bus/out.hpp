#pragma once

#include <memory>

namespace common {

/// The out-pointer of a libsystemd function, for a handle: what the function puts there belongs to
/// the handle when the call is over. Made by `out`, within the call only.
template <class T, class Deleter>
class OutPointer {
  public:
    explicit OutPointer(std::unique_ptr<T, Deleter>& owner) noexcept : owner_(owner) {}
    OutPointer(const OutPointer&) = delete;
    OutPointer& operator=(const OutPointer&) = delete;
    ~OutPointer() { owner_.reset(raw_); }

    // NOLINTNEXTLINE(google-explicit-constructor): it stands where libsystemd takes an out-pointer.
    operator T**() noexcept { return &raw_; }

  private:
    std::unique_ptr<T, Deleter>& owner_;
    T* raw_ = nullptr;
};

/// `check(sd_event_new(out(loop)), "…")`. What the handle has held is released after the call.
template <class T, class Deleter>
[[nodiscard]] OutPointer<T, Deleter> out(std::unique_ptr<T, Deleter>& owner) noexcept {
    return OutPointer<T, Deleter>(owner);
}

}  // namespace common
