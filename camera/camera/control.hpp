#pragma once

#include <systemd/sd-bus.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "camera/camera/camera.hpp"
#include "camera/service/connection.hpp"

namespace camera {

/// Error of a command that is not accepted; its message is a sentence for the user.
inline constexpr const char* refused_error = "com.tarlo.Fenwa.Camera1.Error.Refused";
/// Error of a command that fails because of the bus.
inline constexpr const char* unavailable_error = "com.tarlo.Fenwa.Camera1.Error.Unavailable";

/// Serves commands over the bus, at `camera_control`, on a connection of its own.
class Control {
  public:
    /// Connects and owns the control name.
    /// @param camera must outlive this object.
    /// @throws common::Failure (unavailable), also when another camera plays on this bus.
    Control(Camera& camera, sd_event& event, const std::string& address,
            std::function<void()> lost);

    /// The bus names that the daemon can activate. Waits for its answer, 10 s at most; empty
    /// without one.
    [[nodiscard]] std::set<std::string> startable_names() const;

  private:
    static const sd_bus_vtable vtable_[];

    int set(sd_bus_message& call);
    int start(sd_bus_message& call);
    int stop(sd_bus_message& call);
    int restart(sd_bus_message& call);
    int activate(sd_bus_message& call);
    int fail(sd_bus_message& call);
    int clear_fault(sd_bus_message& call);
    int press(sd_bus_message& call);
    int show(sd_bus_message& call);

    /// Runs a command that takes one string.
    int handle(sd_bus_message& call, void (Camera::*command)(const std::string&));
    static int handle(sd_bus_message& call, const std::function<void()>& command);

    Camera& camera_;
    Connection connection_;
    common::SlotPtr object_;
};

}  // namespace camera
