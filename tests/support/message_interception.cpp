#include <cstdarg>

#include "tests/support/sdbus_arguments.hpp"
#include "tests/support/sdbus_interception.hpp"

// What a block does with a message: sd-bus does it, unless a test makes up the result.

namespace {

using support::Interception;
using support::MessageFunction;

std::optional<int> made_up(MessageFunction function) {
    Interception* const interception = Interception::current();
    return interception == nullptr ? std::nullopt : interception->made_up_result(function);
}

/// The same for a step of reading a body, which the journal is told of.
std::optional<int> made_up_step(MessageFunction function, const char* step) {
    if (Interception* const interception = Interception::current())
        interception->record_reading(step);
    return made_up(function);
}

/// What a step comes to when sd-bus has done it.
int changed(MessageFunction function, int result) {
    Interception* const interception = Interception::current();
    return interception == nullptr ? result : interception->changed_result(function, result);
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
    if (const auto result = made_up(MessageFunction::reply_method_return))
        return *result;
    return sd_bus_reply_method_returnv(message, types, arguments);
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker fixes these names.
extern "C" {

int __wrap_sd_bus_message_read(sd_bus_message* message, const char* types, ...) {
    if (const auto result = made_up_step(MessageFunction::read, "read"))
        return *result;
    std::va_list targets;
    va_start(targets, types);
    std::va_list again;
    va_copy(again, targets);
    const int r = sd_bus_message_readv(message, types, targets);
    va_end(targets);
    null_a_string(again);
    va_end(again);
    return changed(MessageFunction::read, r);
}

int __real_sd_bus_message_read_basic(sd_bus_message* message, char type, void* target);

int __wrap_sd_bus_message_read_basic(sd_bus_message* message, char type, void* target) {
    const auto result = made_up_step(MessageFunction::read_basic, "read_basic");
    if (result)
        return *result;
    return changed(MessageFunction::read_basic,
                   __real_sd_bus_message_read_basic(message, type, target));
}

int __real_sd_bus_message_skip(sd_bus_message* message, const char* types);

int __wrap_sd_bus_message_skip(sd_bus_message* message, const char* types) {
    const auto result = made_up_step(MessageFunction::skip, "skip");
    if (result)
        return *result;
    return changed(MessageFunction::skip, __real_sd_bus_message_skip(message, types));
}

int __real_sd_bus_message_enter_container(sd_bus_message* message, char type, const char* contents);

int __wrap_sd_bus_message_enter_container(sd_bus_message* message, char type,
                                          const char* contents) {
    const auto result = made_up_step(MessageFunction::enter_container, "enter");
    if (result)
        return *result;
    return changed(MessageFunction::enter_container,
                   __real_sd_bus_message_enter_container(message, type, contents));
}

int __real_sd_bus_message_exit_container(sd_bus_message* message);

int __wrap_sd_bus_message_exit_container(sd_bus_message* message) {
    const auto result = made_up_step(MessageFunction::exit_container, "exit");
    if (result)
        return *result;
    return changed(MessageFunction::exit_container, __real_sd_bus_message_exit_container(message));
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
