#pragma once

#include <string>

namespace camera {

/// Prints names on stdout, one a line, for shell completion: "services" and "members" (methods,
/// signals and properties, alone and as SERVICE.MEMBER) are those that every camera has, "values"
/// those that the camera on `bus` shows now.
/// @throws common::Failure as the verbs that talk to a running camera do.
void print_names(const std::string& bus, const std::string& kind);

}  // namespace camera
