// The least that hears the signal with GDBus on GLib's loop.
#include <gio/gio.h>

static double temperature;

static void on_signal(GDBusConnection* /*bus*/, const char* /*sender*/, const char* /*path*/,
                      const char* /*interface*/, const char* /*member*/, GVariant* arguments,
                      gpointer /*data*/) {
    gint32 id = 0;
    g_variant_get(arguments, "(id)", &id, &temperature);
}

int main(int /*argc*/, char** argv) {
    const char* const service = "com.tarlo.TemperatureController";
    const char* const path = "/com/tarlo/TemperatureController";
    GError* error = nullptr;
    GDBusConnection* const bus = g_dbus_connection_new_for_address_sync(
        argv[1],
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &error);
    GVariant* reply = nullptr;
    if (bus != nullptr) {
        g_dbus_connection_signal_subscribe(bus, service, service, "TemperatureChangeSignal", path,
                                           nullptr, G_DBUS_SIGNAL_FLAGS_NONE, on_signal, nullptr,
                                           nullptr);
        reply = g_dbus_connection_call_sync(bus, service, path, service,
                                            "RegisterForTemperatureChangeSignal",
                                            g_variant_new("(id)", 7, 0.5), G_VARIANT_TYPE("(i)"),
                                            G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
    }
    if (reply == nullptr) {
        g_printerr("bench-gdbus: %s\n", error->message);
        return 1;
    }
    g_variant_unref(reply);
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
    return 0;
}
