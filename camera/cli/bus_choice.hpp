#pragma once

#include <string>

namespace camera {

/// Whether a connection to `address` ("system", "session" or a D-Bus address) would reach the
/// system bus of this machine. `environment` is what DBUS_SYSTEM_BUS_ADDRESS holds, null or empty
/// where it is unset: it can lead "system" elsewhere.
[[nodiscard]] bool is_machines_system_bus(const std::string& address, const char* environment);

}  // namespace camera
