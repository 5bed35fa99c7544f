#pragma once

#include <systemd/sd-bus.h>

#include <stdexcept>
#include <string>

#include "common/bus/bus.hpp"

namespace test {

/// A connection that gets a copy of every message on the bus, in the order in which the daemon
/// handles them.
/// @throws std::system_error or std::runtime_error when the bus takes no monitor.
inline common::BusPtr open_monitor(const std::string& address) {
    using common::check;
    common::BusPtr opened;
    check(sd_bus_new(opened.out()), "a monitor connection");
    sd_bus* const bus = opened.get();
    check(sd_bus_set_address(bus, address.c_str()), "address of the monitor");
    check(sd_bus_set_bus_client(bus, 1), "the monitor as a client");
    check(sd_bus_set_monitor(bus, 1), "monitor mode");
    check(sd_bus_start(bus), "start of the monitor");
    common::BusError error;
    const int r = sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                     "org.freedesktop.DBus.Monitoring", "BecomeMonitor", &error,
                                     nullptr, "asu", 0, 0U);
    if (r < 0)
        throw std::runtime_error("BecomeMonitor: " + error.text(r));
    return opened;
}

}  // namespace test
