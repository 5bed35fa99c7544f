#pragma once

#include <sys/eventfd.h>

#include <cerrno>

#include "common/bus/bus.hpp"
#include "common/process/descriptor.hpp"

namespace host {

/// An eventfd, which is readable from `set` to `clear`. Any thread.
class EventFd {
  public:
    /// @throws std::system_error
    EventFd() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        common::check(get() < 0 ? -errno : 0, "cannot make an eventfd");
    }

    [[nodiscard]] int get() const noexcept { return fd_.get(); }

    void set() const noexcept {
        // Fails only if the counter is full, and then the event is set anyway.
        static_cast<void>(eventfd_write(get(), 1));
    }
    void clear() const noexcept {
        eventfd_t count = 0;
        static_cast<void>(eventfd_read(get(), &count));
    }

  private:
    common::Descriptor fd_;
};

}  // namespace host
