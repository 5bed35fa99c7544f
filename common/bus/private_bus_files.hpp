#pragma once

#include <string>
#include <string_view>

namespace common {

/// A path as a D-Bus address has it: bytes with a meaning in addresses become %XX.
[[nodiscard]] std::string address_escaped(std::string_view path);

/// The configuration of a private dbus-daemon: listens at `address`, lets its own user do
/// everything (eavesdropping included), activates services from the folder `services`.
/// `extra_xml` follows the policy as it is: `<limit>`, `<policy>` elements.
[[nodiscard]] std::string bus_configuration(const std::string& address, const std::string& services,
                                            const std::string& extra_xml);

/// The service file that makes `bus_name` activatable: the daemon runs
/// `program activate service`, whatever characters the program's path has.
[[nodiscard]] std::string service_file(const std::string& bus_name, const std::string& program,
                                       const std::string& service);

}  // namespace common
