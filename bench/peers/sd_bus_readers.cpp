// The exchanges of so many readers at their start with sd-bus on sd-event, and nothing else: each
// follows the owner of the service's name, asks for it, listens to the signal, asks for the sensor,
// registers and reads once.
//
//     bench-sd-bus-readers ADDRESS COUNT
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "bench/peers/sd_bus.hpp"

static sd_bus* bus = nullptr;

struct Reader {
    sd_bus_slot* owner_match = nullptr;
    sd_bus_slot* signal_match = nullptr;
    sd_bus_slot* call = nullptr;
    std::int32_t sensor = 0;
    double temperature = 0.0;
};

static int on_signal(sd_bus_message* signal, void* userdata, sd_bus_error* /*error*/) {
    std::int32_t id = 0;
    const int r =
        sd_bus_message_read(signal, "id", &id, &static_cast<Reader*>(userdata)->temperature);
    return r < 0 ? r : 0;
}

static int on_temperature(sd_bus_message* reply, void* userdata, sd_bus_error* /*error*/) {
    auto* const reader = static_cast<Reader*>(userdata);
    reader->call = sd_bus_slot_unref(reader->call);
    return sd_bus_message_read(reply, "d", &reader->temperature);
}

static int on_registered(sd_bus_message* reply, void* userdata, sd_bus_error* /*error*/) {
    auto* const reader = static_cast<Reader*>(userdata);
    reader->call = sd_bus_slot_unref(reader->call);
    std::int32_t id = 0;
    const int r = sd_bus_message_read(reply, "i", &id);
    return r < 0 ? r
                 : sd_bus_call_method_async(bus, &reader->call, service, path, service,
                                            "GetTemperature", on_temperature, reader, "is",
                                            reader->sensor, "main");
}

static int on_sensor(sd_bus_message* reply, void* userdata, sd_bus_error* /*error*/) {
    auto* const reader = static_cast<Reader*>(userdata);
    reader->call = sd_bus_slot_unref(reader->call);
    const int r = sd_bus_message_read(reply, "i", &reader->sensor);
    return r < 0 ? r
                 : sd_bus_call_method_async(bus, &reader->call, service, path, service,
                                            "RegisterForTemperatureChangeSignal", on_registered,
                                            reader, "id", reader->sensor, 0.5);
}

static int on_signal_match(sd_bus_message* reply, void* userdata, sd_bus_error* /*error*/) {
    auto* const reader = static_cast<Reader*>(userdata);
    if (sd_bus_message_is_method_error(reply, nullptr) > 0)
        return -sd_bus_message_get_errno(reply);
    return sd_bus_call_method_async(bus, &reader->call, service, path, service,
                                    "GetTemperatureIdFromName", on_sensor, reader, "s", "main");
}

static int on_owner(sd_bus_message* reply, void* userdata, sd_bus_error* /*error*/) {
    auto* const reader = static_cast<Reader*>(userdata);
    reader->call = sd_bus_slot_unref(reader->call);
    const char* owner = nullptr;
    const int r = sd_bus_message_read(reply, "s", &owner);
    return r < 0 ? r
                 : sd_bus_match_signal_async(bus, &reader->signal_match, service, path, service,
                                             "TemperatureChangeSignal", on_signal, on_signal_match,
                                             reader);
}

static int on_owner_match(sd_bus_message* reply, void* userdata, sd_bus_error* /*error*/) {
    if (sd_bus_message_is_method_error(reply, nullptr) > 0)
        return -sd_bus_message_get_errno(reply);
    return sd_bus_call_method_async(
        bus, &static_cast<Reader*>(userdata)->call, "org.freedesktop.DBus", "/org/freedesktop/DBus",
        "org.freedesktop.DBus", "GetNameOwner", on_owner, userdata, "s", service);
}

static int start(sd_event_source* /*source*/, void* userdata) {
    for (Reader& reader : *static_cast<std::vector<Reader>*>(userdata)) {
        const int r = sd_bus_add_match_async(bus, &reader.owner_match, owner_rule, on_owner_changed,
                                             on_owner_match, &reader);
        if (r < 0)
            return r;
    }
    return 0;
}

int main(int /*argc*/, char** argv) {
    std::vector<Reader> readers(static_cast<std::size_t>(std::atoi(argv[2])));
    sd_event* loop = nullptr;
    int r = open_bus(argv[1], &bus, &loop);
    if (r >= 0)
        r = sd_bus_attach_event(bus, loop, SD_EVENT_PRIORITY_NORMAL);
    if (r >= 0)  // in the loop, where the blocks of the host start their exchanges too
        r = sd_event_add_defer(loop, nullptr, start, &readers);
    if (r >= 0)
        r = sd_event_loop(loop);
    std::fprintf(stderr, "bench-sd-bus-readers: %s\n", std::strerror(-r));
    return r < 0;
}
