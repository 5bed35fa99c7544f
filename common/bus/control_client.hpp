#pragma once

#include <systemd/sd-bus.h>

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/bus/bus.hpp"
#include "common/process/exit_code.hpp"
#include "common/text/json.hpp"

namespace common {

/// A running program of ours as its commands call it over the bus.
struct ControlPeer {
    std::string bus;        ///< "system", "session" or an address
    std::string name;       ///< its bus name
    const char* path;       ///< of its control object
    const char* interface;  ///< of its control object
    std::string noun;       ///< "the host", for sentences
    std::string absent;     ///< the sentence for a bus on which nobody owns the name

    /// What an error reply means to a command.
    struct Error {
        std::string_view prefix;  ///< of the D-Bus error names
        ExitCode code;
    };
    std::vector<Error> errors;  ///< the first match counts; its message is the sentence
};

/// Calls a running program. Each call waits for its reply.
/// All throw Failure: with the code and the message of an error reply that the peer's `errors`
/// list; `usage` if an argument is not valid UTF-8; `unavailable` if the bus or the peer is absent,
/// or does not answer.
class ControlClient {
  public:
    /// Connects to the peer's bus.
    explicit ControlClient(ControlPeer peer);

    [[nodiscard]] MessagePtr new_call(const char* method) const;
    /// Appends to a call, as sd_bus_message_append does.
    template <class... Arguments>
    static void append(const MessagePtr& call, const char* types, Arguments... arguments) {
        check_appended(sd_bus_message_append(call.get(), types, arguments...));
    }
    /// @param r what a function that appends to a call has returned.
    static void check_appended(int r);
    /// Sends a call and returns the reply.
    MessagePtr send(const MessagePtr& call) const;

    /// Calls a method with arguments and returns the reply.
    template <class... Arguments>
    MessagePtr call(const char* method, const char* types, Arguments... arguments) const {
        const MessagePtr message = new_call(method);
        append(message, types, arguments...);
        return send(message);
    }

    /// Calls a method that replies with a string of JSON, and returns what `read` makes of it. The
    /// peer may be another version of the program, or another program.
    /// @param read a callable with a `const Json&`.
    /// @throws Failure (unavailable) also if the reply is of another form, or `read` throws
    ///         JsonError or Json::exception.
    template <class Read>
    auto read_json(const char* method, Read&& read) const {
        return read_json(*send(new_call(method)), std::forward<Read>(read));
    }
    /// The same for the reply of a call that was sent otherwise; an error reply throws as `send`.
    template <class Read>
    auto read_json(sd_bus_message& reply, Read&& read) const {
        try {
            return read(*json_of(reply));
        } catch (const Failure&) {
            throw;
        } catch (...) {
            refuse_reply();
        }
    }

    [[nodiscard]] sd_bus& bus() const noexcept { return *bus_; }
    [[nodiscard]] const ControlPeer& peer() const noexcept { return peer_; }

  private:
    [[nodiscard]] SharedJson json_of(sd_bus_message& reply) const;
    /// Rethrows the exception of a reply's reader as a Failure.
    [[noreturn]] void refuse_reply() const;
    [[noreturn]] void fail(const sd_bus_error& error, const std::string& text) const;

    ControlPeer peer_;
    BusPtr bus_;
};

}  // namespace common
