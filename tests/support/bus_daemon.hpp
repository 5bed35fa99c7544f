#pragma once

#include <sys/types.h>

#include <string>

namespace test {

// What differs between the daemons that private buses run on: dbus-daemon, and dbus-broker under
// script/with-dbus-broker.

/// Whether it is dbus-broker, as the program that serves says itself.
[[nodiscard]] bool on_dbus_broker();

/// The process that reads what clients of a private bus send, whose daemon is this one.
[[nodiscard]] pid_t serving_process(pid_t daemon);

// The daemons share the names of errors; the texts are those of the one that serves.

/// "NAME: TEXT" of the reply to a call to a name that nobody owns and no service file brings up.
[[nodiscard]] std::string not_activatable(const std::string& bus_name);
/// The text in it.
[[nodiscard]] std::string not_activatable_text(const std::string& bus_name);
/// The text of NameHasNoOwner, the answer to who owns this name.
[[nodiscard]] std::string no_owner_text(const std::string& bus_name);
/// The text of NameHasNoOwner, the answer to a call to this name that is to activate nothing.
[[nodiscard]] std::string unowned_receiver_text(const std::string& bus_name);
/// The text of NoReply, the answer to a call whose receiver leaves.
[[nodiscard]] std::string receiver_left_text();
/// The beginning of the text of AccessDenied, the answer to a call that the policy forbids.
[[nodiscard]] std::string denied_text();
/// A part of the text of LimitsExceeded, the answer to a match too many.
[[nodiscard]] std::string too_many_matches_text();
/// The name of the error that answers a call for which a program was started that has failed.
[[nodiscard]] std::string activation_failed_error();

}  // namespace test
