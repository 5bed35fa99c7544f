#include <cstdarg>

#include "tests/support/sdbus_arguments.hpp"
#include "tests/support/sdbus_interception.hpp"

// What a block does with a message: sd-bus does it, unless a test makes up the result.

namespace {

using support::Interception;
using support::MessageFunction;

/// A step of reading a body: the journal records it, and a test may make up or change its result.
template <class Function>
int step(MessageFunction function, const char* function_name, const char* name, Function&& really) {
    Interception* const interception = Interception::current();
    if (interception == nullptr)
        return really();
    interception->record_reading(name);
    if (const int error = interception->fault(function_name); error < 0)
        return error;
    if (const auto result = interception->made_up_result(function))
        return *result;
    return interception->changed_result(function, really());
}

/// Takes back one of the strings that have been read, where a test wants that.
void null_a_string(std::va_list targets) {
    Interception* const interception = Interception::current();
    const auto place = interception == nullptr ? std::nullopt : interception->string_to_null();
    if (!place)
        return;
    for (std::size_t before = 0; before < *place; ++before)
        (void)va_arg(targets, const char**);
    *va_arg(targets, const char**) = nullptr;
}

int answer(sd_bus_message* message, const char* types, std::va_list arguments) {
    Interception* const interception = Interception::current();
    if (interception != nullptr) {
        if (const int error = interception->fault("sd_bus_reply_method_return"); error < 0)
            return error;
        if (const auto result = interception->made_up_result(MessageFunction::reply_method_return))
            return *result;
    }
    return sd_bus_reply_method_returnv(message, types, arguments);
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker fixes these names.
extern "C" {

int __wrap_sd_bus_message_read(sd_bus_message* message, const char* types, ...) {
    std::va_list targets;
    va_start(targets, types);
    std::va_list again;
    va_copy(again, targets);
    const int r = step(MessageFunction::read, "sd_bus_message_read", "read", [&] {
        const int result = sd_bus_message_readv(message, types, targets);
        null_a_string(again);
        return result;
    });
    va_end(again);
    va_end(targets);
    return r;
}

int __real_sd_bus_message_read_basic(sd_bus_message* message, char type, void* target);

int __wrap_sd_bus_message_read_basic(sd_bus_message* message, char type, void* target) {
    return step(MessageFunction::read_basic, "sd_bus_message_read_basic", "read_basic",
                [&] { return __real_sd_bus_message_read_basic(message, type, target); });
}

int __real_sd_bus_message_skip(sd_bus_message* message, const char* types);

int __wrap_sd_bus_message_skip(sd_bus_message* message, const char* types) {
    return step(MessageFunction::skip, "sd_bus_message_skip", "skip",
                [&] { return __real_sd_bus_message_skip(message, types); });
}

int __real_sd_bus_message_enter_container(sd_bus_message* message, char type, const char* contents);

int __wrap_sd_bus_message_enter_container(sd_bus_message* message, char type,
                                          const char* contents) {
    return step(MessageFunction::enter_container, "sd_bus_message_enter_container", "enter",
                [&] { return __real_sd_bus_message_enter_container(message, type, contents); });
}

int __real_sd_bus_message_exit_container(sd_bus_message* message);

int __wrap_sd_bus_message_exit_container(sd_bus_message* message) {
    return step(MessageFunction::exit_container, "sd_bus_message_exit_container", "exit",
                [&] { return __real_sd_bus_message_exit_container(message); });
}

int __wrap_sd_bus_reply_method_return(sd_bus_message* message, const char* types, ...) {
    std::va_list arguments;
    va_start(arguments, types);
    // Rendered first: answering uses the arguments up.
    const std::string text =
        support::render_text(types) + "(" + support::render_arguments(types, arguments) + ")";
    const int r = answer(message, types, arguments);
    va_end(arguments);
    if (Interception* const interception = Interception::current())
        interception->record_answer(message, text, r);
    return r;
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
