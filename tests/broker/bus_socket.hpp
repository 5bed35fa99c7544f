#pragma once

#include <string>

#include "common/process/descriptor.hpp"

namespace test {

/// A socket of this type that is bound to a path. @throws std::system_error.
[[nodiscard]] common::Descriptor bound_socket(int type, const std::string& path);

/// What `<listen>` of a bus configuration names, such as "unix:path=/tmp/bus".
/// @throws std::runtime_error when it names no path.
[[nodiscard]] std::string listen_address(const std::string& configuration_file);
/// The path in such an address.
[[nodiscard]] std::string socket_path(const std::string& address);

}  // namespace test
