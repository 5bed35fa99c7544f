#pragma once

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <chrono>
#include <string>
#include <vector>

#include "fenwa/slot.hpp"

namespace common {

/// A connection; it is flushed and closed when the handle lets go of it.
using BusPtr = Fenwa::Handle<sd_bus, sd_bus_flush_close_unref>;
using EventPtr = Fenwa::Handle<sd_event, sd_event_unref>;
using EventSourcePtr = Fenwa::Handle<sd_event_source, sd_event_source_disable_unref>;
using SlotPtr = Fenwa::Slot;
using TrackPtr = Fenwa::Handle<sd_bus_track, sd_bus_track_unref>;
using MessagePtr = Fenwa::Message;

/// "NAME: MESSAGE" of an error that is set.
[[nodiscard]] std::string text_of(const sd_bus_error& error);

/// An error structure that frees itself.
struct BusError {
    sd_bus_error error = SD_BUS_ERROR_NULL;

    BusError() = default;
    BusError(const BusError&) = delete;
    BusError& operator=(const BusError&) = delete;
    ~BusError() { sd_bus_error_free(&error); }

    sd_bus_error* operator&() { return &error; }  // NOLINT: the out-pointer that sd-bus wants
    /// "NAME: MESSAGE", or the text of the negative errno `r` where no error is set.
    [[nodiscard]] std::string text(int r) const;
};

/// Connects to "system", "session" or a D-Bus address and waits until the daemon has answered.
/// @throws Failure (unavailable), naming the address and what to do, when that fails or takes
///         longer than `limit`.
[[nodiscard]] BusPtr open_bus(const std::string& address, std::chrono::microseconds limit);

/// Whether a connection can own such a name: a well-formed one, and not a unique name (":1.7").
[[nodiscard]] bool is_ownable_name(const std::string& name);

/// Owns `name` on the connection from here on (not queued, not replaceable).
/// @throws Failure (unavailable) naming the name and, where another has it, saying so.
void own_name(sd_bus& bus, const std::string& name);

/// Sends the rest of the output, ends the connection on this side and waits until the daemon ends
/// it too, after it has read everything. Drops the input: no handler is called. Afterwards the
/// connection can only be released.
/// @param deadline when the connection is cut at the latest.
/// @returns whether the daemon has read everything.
[[nodiscard]] bool finish_sending(sd_bus& bus, std::chrono::steady_clock::time_point deadline);

/// The next argument of a message, which is a string.
/// @throws std::system_error when it is not.
[[nodiscard]] std::string read_string(sd_bus_message& message);

/// The next argument of a message, which is an array of strings.
/// @throws std::system_error when it is not.
[[nodiscard]] std::vector<std::string> read_strings(sd_bus_message& message);

/// Appends an array of strings. @returns as sd_bus_message_append.
[[nodiscard]] int append_strings(sd_bus_message& message, const std::vector<std::string>& texts);

/// The D-Bus type of the value in the variant that is next in a message; empty if none is next.
/// @throws std::system_error when the message cannot be read.
[[nodiscard]] std::string variant_type(sd_bus_message& message);

/// An empty method return for `call`. @throws std::system_error.
[[nodiscard]] MessagePtr new_reply(sd_bus_message& call);

/// @throws std::system_error of this errno.
[[noreturn]] void fail(int error, const char* what);

/// @throws std::system_error when `r` is negative; returns `r` otherwise.
inline int check(int r, const char* what) {
    if (r < 0)
        fail(-r, what);
    return r;
}

}  // namespace common
