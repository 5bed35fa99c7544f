#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace camera {

/// From here on stdout and stderr are written on threads of their own where they lead to a reader,
/// who may not read: the services and the end of the camera do not wait. Lines that are too many
/// are dropped and counted. At exit(3) the rest is written, unless nobody takes it for 5 s.
/// @throws common::Failure if no thread can be started.
void buffer_streams();

/// Makes the line that replaces dropped ones on stdout, line end included; empty for the usual one.
void describe_dropped_lines(std::function<std::string(std::size_t lines)> description);

}  // namespace camera
