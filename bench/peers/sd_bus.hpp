// What the receivers with sd-bus share.
#pragma once

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

inline constexpr const char* service = "com.tarlo.TemperatureController";
inline constexpr const char* path = "/com/tarlo/TemperatureController";
inline constexpr const char* owner_rule =
    "type='signal',interface='org.freedesktop.DBus',member='NameOwnerChanged'";

/// Starts a connection, which is not attached, and makes a loop. @returns a negative errno.
inline int open_bus(const char* address, sd_bus** bus, sd_event** loop) {
    int r = sd_event_default(loop);
    if (r >= 0)
        r = sd_bus_new(bus);
    if (r >= 0)
        r = sd_bus_set_address(*bus, address);
    if (r >= 0)
        r = sd_bus_set_bus_client(*bus, 1);
    return r < 0 ? r : sd_bus_start(*bus);
}

inline int on_owner_changed(sd_bus_message* signal, void* /*userdata*/, sd_bus_error* /*error*/) {
    const char* name = nullptr;
    const char* before = nullptr;
    const char* after = nullptr;
    const int r = sd_bus_message_read(signal, "sss", &name, &before, &after);
    return r < 0 ? r : 0;
}
