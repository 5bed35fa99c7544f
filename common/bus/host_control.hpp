#pragma once

namespace common {

// The names of a running host's control interface on the bus.
inline constexpr const char* host_control_name =
    "com.tarlo.Fenwa.Host1";  ///< unless another is given
inline constexpr const char* host_control_path = "/com/tarlo/Fenwa/Host1";
inline constexpr const char* host_control_interface = "com.tarlo.Fenwa.Host1";
/// The beginning of the names of the errors with which a host refuses a call.
inline constexpr const char* host_error_prefix = "com.tarlo.Fenwa.Host1.Error.";

}  // namespace common
