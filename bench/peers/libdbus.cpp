// The least that hears the signal with libdbus and the loop that it brings along.
#include <dbus/dbus.h>

#include <cstdio>

static double temperature;

static DBusHandlerResult on_message(DBusConnection* /*bus*/, DBusMessage* message, void* /*data*/) {
    dbus_int32_t id = 0;
    if (!dbus_message_is_signal(message, "com.tarlo.TemperatureController",
                                "TemperatureChangeSignal"))
        return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
    dbus_message_get_args(message, nullptr, DBUS_TYPE_INT32, &id, DBUS_TYPE_DOUBLE, &temperature,
                          DBUS_TYPE_INVALID);
    return DBUS_HANDLER_RESULT_HANDLED;
}

int main(int /*argc*/, char** argv) {
    const char* const service = "com.tarlo.TemperatureController";
    DBusError error = DBUS_ERROR_INIT;
    DBusConnection* const bus = dbus_connection_open(argv[1], &error);
    if (bus == nullptr || !dbus_bus_register(bus, &error) ||
        !dbus_connection_add_filter(bus, on_message, nullptr, nullptr)) {
        std::fprintf(stderr, "bench-libdbus: %s\n", error.message);
        return 1;
    }
    dbus_bus_add_match(bus,
                       "type='signal',sender='com.tarlo.TemperatureController',"
                       "path='/com/tarlo/TemperatureController',"
                       "interface='com.tarlo.TemperatureController',"
                       "member='TemperatureChangeSignal'",
                       &error);
    DBusMessage* const call = dbus_message_new_method_call(
        service, "/com/tarlo/TemperatureController", service, "RegisterForTemperatureChangeSignal");
    const dbus_int32_t id = 7;
    const double delta = 0.5;
    dbus_message_append_args(call, DBUS_TYPE_INT32, &id, DBUS_TYPE_DOUBLE, &delta,
                             DBUS_TYPE_INVALID);
    DBusMessage* const reply = dbus_connection_send_with_reply_and_block(bus, call, -1, &error);
    dbus_message_unref(call);
    if (reply == nullptr) {
        std::fprintf(stderr, "bench-libdbus: %s\n", error.message);
        return 1;
    }
    dbus_message_unref(reply);
    while (dbus_connection_read_write_dispatch(bus, -1)) {
    }
    return 0;
}
