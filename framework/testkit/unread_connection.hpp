#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>

#include "fenwa/slot.hpp"

namespace Fenwa::testkit {

/// A connection to nobody, on which real messages are built: one end of a socket pair whose other
/// end is never read.
class UnreadConnection {
  public:
    /// @throws std::system_error
    UnreadConnection();
    UnreadConnection(const UnreadConnection&) = delete;
    UnreadConnection& operator=(const UnreadConnection&) = delete;
    ~UnreadConnection();

    [[nodiscard]] sd_bus* bus() const noexcept { return bus_.get(); }

    /// Makes a message readable, as it reaches its receiver. @throws std::system_error
    void seal(sd_bus_message* message);

  private:
    int other_end_ = -1;
    Handle<sd_bus, sd_bus_close_unref> bus_;
    std::uint64_t cookie_ = 0;
};

}  // namespace Fenwa::testkit
