// The least that hears the signal with sd-bus on sd-event. `--follow-owner` adds the match that
// each block must have, too: on the owner of the service's name.
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

static double temperature;

static int on_signal(sd_bus_message* signal, void* /*userdata*/, sd_bus_error* /*error*/) {
    std::int32_t id = 0;
    return sd_bus_message_read(signal, "id", &id, &temperature);
}

static int on_owner(sd_bus_message* /*signal*/, void* /*userdata*/, sd_bus_error* /*error*/) {
    return 0;
}

int main(int argc, char** argv) {
    const char* const service = "com.tarlo.TemperatureController";
    const char* const path = "/com/tarlo/TemperatureController";
    sd_bus* bus = nullptr;
    sd_event* loop = nullptr;
    int r = sd_event_default(&loop);
    if (r >= 0)
        r = sd_bus_new(&bus);
    if (r >= 0)
        r = sd_bus_set_address(bus, argv[1]);
    if (r >= 0)
        r = sd_bus_set_bus_client(bus, 1);
    if (r >= 0)
        r = sd_bus_start(bus);
    if (r >= 0)
        r = sd_bus_match_signal(bus, nullptr, service, path, service, "TemperatureChangeSignal",
                                on_signal, nullptr);
    if (r >= 0 && argc > 2 && std::strcmp(argv[2], "--follow-owner") == 0)
        r = sd_bus_match_signal(bus, nullptr, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                "org.freedesktop.DBus", "NameOwnerChanged", on_owner, nullptr);
    if (r >= 0)
        r = sd_bus_call_method(bus, service, path, service, "RegisterForTemperatureChangeSignal",
                               nullptr, nullptr, "id", 7, 0.5);
    if (r >= 0)
        r = sd_bus_attach_event(bus, loop, SD_EVENT_PRIORITY_NORMAL);
    if (r >= 0)
        r = sd_event_loop(loop);
    std::fprintf(stderr, "bench-sd-bus: %s\n", std::strerror(-r));
    return r < 0;
}
