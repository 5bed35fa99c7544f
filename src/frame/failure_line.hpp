#pragma once

#include <systemd/sd-bus.h>

#include <exception>

namespace blocks {

/// Levels of a log line, as the framework's `logger` takes them.
enum class Level : int { error = 1, warning = 2, information = 4 };

// Every failure of the bus becomes one log line: a fixed prefix and a detail. A detail that is a
// null C string leaves the prefix alone.

/// A function of sd-bus returned the negative `r`: the detail is strerror(-r).
void log_errno(Level level, const char* prefix, int r);

/// A reply or signal is a D-Bus error: the detail is the first string of its body, or "unknown" if
/// that cannot be read. Level error.
/// @returns the result of reading that string.
int log_error_message(const char* prefix, sd_bus_message* message);

/// A blocking call threw: the detail is what().
void log_exception(Level level, const char* prefix, const std::exception& exception);

/// The error argument of a callback is set: the detail is its message.
/// @returns the error's negative errno.
int log_error_argument(Level level, const char* prefix, const sd_bus_error& error);

/// The texts of a callback that tests its error argument and then reads a body.
struct BodyTexts {
    Level error_level;         ///< for a set error argument
    const char* error_prefix;  ///< for a set error argument
    const char* parse_prefix;  ///< for a body that cannot be read, always a warning
};

/// Reads the body of a reply or signal with `sd_bus_message_read`, and logs a failure.
///
/// sd-bus passes an empty error argument, so an error reply is not recognised by it and ends in the
/// failing read.
/// @returns the negative errno of a set error argument, or the result of the read.
template <class... Targets>
int read_body(sd_bus_message* message, const sd_bus_error* error, const BodyTexts& texts,
              const char* types, Targets*... targets) {
    if (sd_bus_error_is_set(error) > 0)
        return log_error_argument(texts.error_level, texts.error_prefix, *error);
    const int r = sd_bus_message_read(message, types, targets...);
    if (r < 0)
        log_errno(Level::warning, texts.parse_prefix, r);
    return r;
}

}  // namespace blocks
