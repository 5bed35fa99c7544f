#pragma once

#include <systemd/sd-bus.h>

#include <string>

#include "fenwa/slot.hpp"

namespace Fenwa::testkit {

/// A connection to a bus; it is flushed and closed when the handle lets go of it.
using Connection = Handle<sd_bus, sd_bus_flush_close_unref>;

/// Connects to the bus at an address. @throws std::system_error
[[nodiscard]] Connection connect_to(const std::string& address);

}  // namespace Fenwa::testkit
