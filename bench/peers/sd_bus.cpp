// The least that hears the signal with sd-bus on sd-event, and leaves it to other matches of the
// connection too. So many more matches follow the owners of names, as each block must.
//
//     bench-sd-bus ADDRESS [MATCHES]
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bench/peers/sd_bus.hpp"

static double temperature;

static int on_signal(sd_bus_message* signal, void* /*userdata*/, sd_bus_error* /*error*/) {
    std::int32_t id = 0;
    const int r = sd_bus_message_read(signal, "id", &id, &temperature);
    return r < 0 ? r : 0;
}

int main(int argc, char** argv) {
    sd_bus* bus = nullptr;
    sd_event* loop = nullptr;
    int r = open_bus(argv[1], &bus, &loop);
    if (r >= 0)
        r = sd_bus_match_signal(bus, nullptr, service, path, service, "TemperatureChangeSignal",
                                on_signal, nullptr);
    for (int left = argc > 2 ? std::atoi(argv[2]) : 0; r >= 0 && left > 0; --left)
        r = sd_bus_add_match(bus, nullptr, owner_rule, on_owner_changed, nullptr);
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
