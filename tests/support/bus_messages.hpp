#pragma once

#include <systemd/sd-bus.h>

#include <functional>
#include <memory>

#include "framework/testkit/unread_connection.hpp"

namespace support {

struct MessageUnref {
    void operator()(sd_bus_message* message) const noexcept { sd_bus_message_unref(message); }
};

/// One message, owned. Stands for itself where sd-bus wants one.
class Message {
  public:
    explicit Message(sd_bus_message* message) : message_(message) {}
    operator sd_bus_message*() const { return message_.get(); }  // NOLINT: implicit

    /// Hands the reference to the caller.
    [[nodiscard]] sd_bus_message* release() { return message_.release(); }

  private:
    std::unique_ptr<sd_bus_message, MessageUnref> message_;
};

// What sd-bus never fills an error argument with.
inline constexpr sd_bus_error denied =
    SD_BUS_ERROR_MAKE_CONST("org.freedesktop.DBus.Error.AccessDenied", "not you");

/// Throws what a negative result of sd-bus means.
void check(int r);

/// Makes messages as they reach a callback: real ones, sealed and rewound.
class Messages {
  public:
    Messages();
    Messages(const Messages&) = delete;
    Messages& operator=(const Messages&) = delete;

    /// The connection that the messages are built on; nothing on it is ever delivered.
    [[nodiscard]] sd_bus* bus() const { return connection_.bus(); }

    /// A method call with these arguments; a reply to it is queued and never read.
    template <class... Values>
    [[nodiscard]] Message call(const char* path, const char* interface, const char* member,
                               const char* types, Values... values) {
        return finish(new_call(path, interface, member), types, values...);
    }

    /// A method return holding these values.
    template <class... Values>
    [[nodiscard]] Message reply(const char* types, Values... values) {
        return finish(new_reply(), types, values...);
    }

    /// Puts values into a message.
    using Append = std::function<void(sd_bus_message*)>;

    // The same messages with whatever values are appended.
    [[nodiscard]] Message call_with(const char* path, const char* interface, const char* member,
                                    const Append& append) {
        return finish(new_call(path, interface, member), append);
    }
    [[nodiscard]] Message reply_with(const Append& append) { return finish(new_reply(), append); }
    [[nodiscard]] Message error_with(const char* name, const Append& append) {
        return finish(new_error(name, nullptr), append);
    }
    [[nodiscard]] Message signal_with(const char* path, const char* interface, const char* member,
                                      const Append& append) {
        return finish(new_signal(path, interface, member), append);
    }

    /// An error reply whose body is its text, as services send it; empty for a null text.
    [[nodiscard]] Message error(const char* name, const char* text);

    /// An error reply with any other body.
    template <class... Values>
    [[nodiscard]] Message error_with_body(const char* name, const char* types, Values... values) {
        return finish(new_error(name, nullptr), types, values...);
    }

    template <class... Values>
    [[nodiscard]] Message signal(const char* path, const char* interface, const char* member,
                                 const char* types, Values... values) {
        return finish(new_signal(path, interface, member), types, values...);
    }

    /// The bus daemon's NameOwnerChanged; an empty owner is none.
    [[nodiscard]] Message owner_change(const char* name, const char* old_owner,
                                       const char* new_owner) {
        return signal("/org/freedesktop/DBus", "org.freedesktop.DBus", "NameOwnerChanged", "sss",
                      name, old_owner, new_owner);
    }

  private:
    [[nodiscard]] Message new_call(const char* path, const char* interface, const char* member);
    [[nodiscard]] Message new_reply();
    [[nodiscard]] Message new_error(const char* name, const char* text);
    [[nodiscard]] Message new_signal(const char* path, const char* interface, const char* member);
    [[nodiscard]] Message seal(Message message);

    template <class... Values>
    [[nodiscard]] Message finish(Message message, const char* types, Values... values) {
        check(sd_bus_message_append(message, types, values...));
        return seal(std::move(message));
    }
    [[nodiscard]] Message finish(Message message, const Append& append) {
        append(message);
        return seal(std::move(message));
    }

    Fenwa::testkit::UnreadConnection connection_;
    Message question_{nullptr};  // what the replies answer
};

}  // namespace support
