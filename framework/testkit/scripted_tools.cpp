#include "fenwa/testkit/scripted_tools.hpp"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <utility>

#include "fenwa/sdbus_error.hpp"
#include "fenwa/slot.hpp"
#include "framework/testkit/sdbus_result.hpp"
#include "framework/testkit/texts.hpp"
#include "framework/testkit/unread_connection.hpp"

namespace Fenwa::testkit {
namespace {

/// What `ConnectionTools` throws for a call that sd-bus does not take.
[[noreturn]] void fail(int r) {
    throw SDBusError(SD_BUS_ERROR_INVALID_ARGS, std::strerror(-r), r);
}

}  // namespace

struct ScriptedTools::Connection : UnreadConnection {
    Message call(const char* destination, const char* path, const char* interface,
                 const char* member) {
        Message message;
        const int r = sd_bus_message_new_method_call(bus(), message.out(), destination, path,
                                                     interface, member);
        if (r < 0)
            fail(r);
        return message;
    }
};

ScriptedTools::ScriptedTools() : connection_(std::make_unique<Connection>()) {}
ScriptedTools::~ScriptedTools() = default;

void ScriptedTools::call_method(const char* destination, const char* path, const char* interface,
                                const char* member, sd_bus_message** reply, const char* types,
                                ...) {
    const Message call = connection_->call(destination, path, interface, member);
    if (types != nullptr && *types != '\0') {
        std::va_list arguments;
        va_start(arguments, types);
        const int r = sd_bus_message_appendv(call.get(), types, arguments);
        va_end(arguments);
        if (r < 0)
            fail(r);
    }
    connection_->seal(call.get());
    end(record({destination, path, interface, member, arguments_text(call.get())}, member),
        call.get(), reply, nullptr);
}

void ScriptedTools::get_property(const char* destination, const char* path, const char* interface,
                                 const char* member, sd_bus_message** reply, const char* type) {
    constexpr const char* properties = "org.freedesktop.DBus.Properties";
    const Message call = connection_->call(destination, path, properties, "Get");
    check(sd_bus_message_append(call.get(), "ss", interface, member));
    connection_->seal(call.get());
    end(record({destination, path, properties, "Get", arguments_text(call.get())}, member),
        call.get(), reply, type);
}

/// @param type of the property that is read; null for a method.
void ScriptedTools::end(const std::optional<Ending>& ending, sd_bus_message* call,
                        sd_bus_message** reply, const char* type) {
    if (!ending)
        fail(-EINVAL);
    if (ending->kind == Ending::Kind::error)
        throw SDBusError(ending->error_name, ending->text, -EIO);
    if (ending->kind == Ending::Kind::silence)
        throw SDBusError(SD_BUS_ERROR_NO_REPLY, "Method call timed out", -ETIMEDOUT);
    Message answer;
    check(sd_bus_message_new_method_return(call, answer.out()));
    check(ending->values.append_to(answer.get()));
    connection_->seal(answer.get());
    if (type != nullptr && std::strcmp(sd_bus_message_get_signature(answer.get(), 1), type) != 0)
        throw SDBusError(SD_BUS_ERROR_INVALID_ARGS, "No such device or address", -ENXIO);
    if (reply != nullptr)
        *reply = answer.release();
}

}  // namespace Fenwa::testkit
