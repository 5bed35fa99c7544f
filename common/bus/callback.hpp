#pragma once

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <exception>
#include <string>

#include "common/process/exit_code.hpp"
#include "common/text/line_text.hpp"

namespace common {

/// Turns a named member function into a libsystemd callback, and is the only place where a
/// `void*` becomes an object again. No exception leaves towards C code.
///
///  - `int T::f(sd_bus_message&)` gives `message`, for filters, matches and methods; an exception
///    becomes the error reply `org.freedesktop.DBus.Error.Failed` with its text;
///  - `void T::f()` gives `event`, for signal sources of the loop; an exception ends the loop
///    with exit code 70, after a line on stderr.
template <auto Member>
struct Trampoline;

/// Ends the loop of `source` because a callback threw; to be called in a catch clause only.
inline void end_loop_after_exception(sd_event_source* source) noexcept {
    try {
        throw;
    } catch (const std::exception& error) {
        print_error_line(std::string("fenwa-camera: internal error: ") + error.what());
    } catch (...) {
        print_error_line("fenwa-camera: internal error");
    }
    sd_event_exit(sd_event_source_get_event(source), static_cast<int>(ExitCode::software));
}

template <class T, int (T::*Member)(sd_bus_message&)>
struct Trampoline<Member> {
    static int message(sd_bus_message* message, void* userdata, sd_bus_error* error) noexcept {
        try {
            return (static_cast<T*>(userdata)->*Member)(*message);
        } catch (const std::exception& exception) {
            return sd_bus_error_set(error, SD_BUS_ERROR_FAILED, one_line(exception.what()).c_str());
        }
    }
};

template <class T, void (T::*Member)()>
struct Trampoline<Member> {
    static int event(sd_event_source* source, const struct signalfd_siginfo* /*info*/,
                     void* userdata) noexcept {
        try {
            (static_cast<T*>(userdata)->*Member)();
        } catch (...) {
            end_loop_after_exception(source);
        }
        return 0;
    }
};

}  // namespace common
