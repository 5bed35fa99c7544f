#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "camera/service/event_log.hpp"
#include "common/process/exit_code.hpp"
#include "common/text/json.hpp"

namespace camera {

/// The verbs of the command line that talk to a running camera. Each connects to `bus` ("system",
/// "session" or an address), gives its order and waits for the answer.
/// @throws common::Failure: `usage` with the camera's sentence when it refuses, `unavailable` when
///         the bus or a camera on it is not there.

/// Gives an order that takes one string: "Start", "Stop", "Restart", "ClearFault", "Press".
void call(const std::string& bus, const char* order, const std::string& argument);

void set_value(const std::string& bus, const std::string& name, const std::string& value);

/// What `fenwa-camera fail` was asked for; what is not set is not sent.
struct FaultOptions {
    std::string member;
    std::optional<std::string> error;
    std::optional<std::int64_t> delay;  ///< milliseconds
    std::optional<std::int64_t> times;
    std::optional<double> probability;
    std::optional<std::int64_t> seed;
    bool malformed = false;
    bool silent = false;
    bool drop = false;
};

void set_fault(const std::string& bus, const FaultOptions& options);

/// The camera's whole state, as `Camera::show` gives it; all its members were looked at.
/// @throws common::Failure (unavailable) too when the answer is of another form.
[[nodiscard]] common::Json camera_state(const std::string& bus);

/// Prints the camera's whole state to stdout, as text or as one line of JSON.
void show_camera(const std::string& bus, Format format);

/// What the bus daemon runs to bring a service up: asks the camera on the bus that started us,
/// which is in DBUS_STARTER_ADDRESS. Exit code 1 tells the daemon that the service does not come.
[[nodiscard]] common::ExitCode activate_service(const std::string& service);

}  // namespace camera
