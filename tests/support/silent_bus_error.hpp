#pragma once

#include <cerrno>

#include "fenwa/sdbus_error.hpp"

namespace support {

/// A failed blocking call with nothing to say.
class SilentBusError final : public Fenwa::SDBusError {
  public:
    SilentBusError() : SDBusError("a.Error", "", -EIO) {}
    [[nodiscard]] const char* what() const noexcept override { return nullptr; }
};

}  // namespace support
