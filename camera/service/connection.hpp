#pragma once

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <functional>
#include <string>

#include "common/bus/bus.hpp"

namespace camera {

/// A connection to the bus that the loop serves. Each service has its own.
class Connection {
  public:
    /// Connects, and waits for the daemon, 10 s at most.
    /// @param lost called from the loop when the daemon ends the connection; it must not destroy
    ///             this object.
    /// @throws common::Failure (unavailable) when the bus cannot be reached.
    Connection(sd_event& event, const std::string& address, std::function<void()> lost);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Ends the connection and waits, 10 s at most, until the daemon has seen the end: its bus
    /// names are free then, while those of a connection that is merely closed are free some time
    /// later. Afterwards it can only be destroyed.
    void close();

    [[nodiscard]] sd_bus& bus() const noexcept { return *bus_; }
    /// ":1.7", valid as long as the connection.
    [[nodiscard]] const std::string& unique_name() const noexcept { return unique_name_; }

  private:
    int on_message(sd_bus_message& message);

    std::function<void()> lost_;
    common::BusPtr bus_;
    common::SlotPtr filter_;
    std::string unique_name_;
};

/// How long the camera waits for a daemon before it calls it absent.
inline constexpr std::chrono::seconds bus_timeout{10};

}  // namespace camera
