#include "framework/algo-tools/connection_tools.hpp"

#include <cstdarg>
#include <cstring>

#include "fenwa/sdbus_error.hpp"

namespace Fenwa {
namespace {

/// Throws the exception of a failed call; frees nothing.
[[noreturn]] void fail(const sd_bus_error& error, int r) {
    if (sd_bus_error_is_set(&error) > 0) {
        throw SDBusError(error.name, error.message == nullptr ? "" : error.message,
                         r < 0 ? r : -sd_bus_error_get_errno(&error));
    }
    // Without a bus, or with invalid arguments, sd-bus returns the errno alone.
    sd_bus_error local = SD_BUS_ERROR_NULL;
    sd_bus_error_set_errno(&local, r);
    const SDBusError exception(local.name == nullptr ? SD_BUS_ERROR_FAILED : local.name,
                               std::strerror(-r), r);
    sd_bus_error_free(&local);
    throw exception;
}

struct Call {
    sd_bus_message* message = nullptr;
    sd_bus_message* reply = nullptr;
    sd_bus_error error = SD_BUS_ERROR_NULL;

    Call() = default;
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;
    ~Call() {
        sd_bus_message_unref(message);
        sd_bus_message_unref(reply);
        sd_bus_error_free(&error);
    }

    void hand_over(sd_bus_message** out) {
        if (out != nullptr)
            *out = sd_bus_message_ref(reply);
    }
};

}  // namespace

ConnectionTools::~ConnectionTools() = default;

void ConnectionTools::call_method(const char* destination, const char* path, const char* interface,
                                  const char* member, sd_bus_message** reply, const char* types,
                                  ...) {
    Call call;
    int r =
        sd_bus_message_new_method_call(bus_, &call.message, destination, path, interface, member);
    if (r >= 0 && types != nullptr && *types != '\0') {
        std::va_list arguments;
        va_start(arguments, types);
        r = sd_bus_message_appendv(call.message, types, arguments);
        va_end(arguments);
    }
    // 0: the time-out that is set for the whole connection.
    if (r >= 0)
        r = sd_bus_call(bus_, call.message, 0, &call.error, &call.reply);
    if (r < 0)
        fail(call.error, r);
    call.hand_over(reply);
}

void ConnectionTools::get_property(const char* destination, const char* path, const char* interface,
                                   const char* member, sd_bus_message** reply, const char* type) {
    Call call;
    const int r = sd_bus_get_property(bus_, destination, path, interface, member, &call.error,
                                      &call.reply, type);
    if (r < 0)
        fail(call.error, r);
    call.hand_over(reply);
}

sd_bus* ConnectionTools::get_bus() {
    return bus_;
}

}  // namespace Fenwa
