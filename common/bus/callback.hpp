#pragma once

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <cerrno>
#include <cstdint>
#include <exception>
#include <string>

#include "common/bus/error_reply.hpp"
#include "common/events/message.hpp"
#include "common/process/exit_code.hpp"
#include "common/text/line_text.hpp"
#include "fenwa/callback.hpp"

namespace common {

/// Ends the loop, null for none, because a callback threw; to be called in a catch clause only.
inline void end_loop_after_exception(sd_event* event) noexcept {
    try {
        throw;
    } catch (const std::exception& error) {
        print_message(Severity::error, std::string("internal error: ") + error.what());
    } catch (...) {
        print_message(Severity::error, "internal error");
    }
    if (event != nullptr)
        sd_event_exit(event, static_cast<int>(ExitCode::software));
}

/// A member function as a callback of libsystemd: give `callback<&T::f>` with the object as
/// `userdata`. The member takes nothing, or the arguments of its kind of callback:
///
///  - messages (filters, matches, methods): `sd_bus_message&`. An ErrorReply becomes that error
///    reply, any other exception `org.freedesktop.DBus.Error.Failed`. The same for getters of
///    properties, which get the reply to append to;
///  - trackers of names: nothing. An exception ends the loop of the connection, as the next one;
///  - event sources: `sd_event_source&`, and then for I/O the `int fd`, for timers the `uint64_t`
///    when it was due. An exception ends the loop with exit code 70, after a line on stderr.
///
/// A member that returns `int` gives the callback's result; of one that returns `void` it is 0. No
/// exception leaves towards C code.
template <auto Member>
class Callback {
  public:
    // NOLINTBEGIN(google-explicit-constructor): libsystemd takes a function here.
    constexpr operator sd_bus_message_handler_t() const noexcept { return on_message; }
    constexpr operator sd_bus_property_get_t() const noexcept { return on_property; }
    constexpr operator sd_bus_track_handler_t() const noexcept { return on_track; }
    constexpr operator sd_event_io_handler_t() const noexcept { return on_io; }
    constexpr operator sd_event_time_handler_t() const noexcept { return on_event<std::uint64_t>; }
    constexpr operator sd_event_signal_handler_t() const noexcept { return on_signal; }
    // NOLINTEND(google-explicit-constructor)

  private:
    static int on_message(sd_bus_message* message, void* userdata, sd_bus_error* error) noexcept {
        try {
            return Fenwa::Callback<Member>::invoke(userdata, *message);
        } catch (const ErrorReply& reply) {
            return sd_bus_error_set(error, reply.name().c_str(), reply.what());
        } catch (const std::exception& exception) {
            return sd_bus_error_set(error, SD_BUS_ERROR_FAILED, one_line(exception.what()).c_str());
        }
    }

    static int on_property(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/,
                           const char* /*property*/, sd_bus_message* reply, void* userdata,
                           sd_bus_error* error) noexcept {
        return on_message(reply, userdata, error);
    }

    static int on_track(sd_bus_track* track, void* userdata) noexcept {
        try {
            Fenwa::Callback<Member>::invoke(userdata);
        } catch (...) {
            end_loop_after_exception(sd_bus_get_event(sd_bus_track_get_bus(track)));
        }
        return 1;  // 0 has sd-bus call again and again until a name is added
    }

    template <class... Details>
    static int serve(sd_event_source* source, void* userdata, Details... details) noexcept {
        try {
            return Fenwa::Callback<Member>::invoke(userdata, *source, details...);
        } catch (...) {
            end_loop_after_exception(sd_event_source_get_event(source));
            return 0;
        }
    }
    template <class... Details>
    static int on_event(sd_event_source* source, Details... details, void* userdata) noexcept {
        return serve(source, userdata, details...);
    }
    static int on_io(sd_event_source* source, int fd, std::uint32_t /*events*/,
                     void* userdata) noexcept {
        return serve(source, userdata, fd);
    }
    static int on_signal(sd_event_source* source, const struct signalfd_siginfo* /*info*/,
                         void* userdata) noexcept {
        return serve(source, userdata);
    }
};

template <auto Member>
inline constexpr Callback<Member> callback{};

}  // namespace common
