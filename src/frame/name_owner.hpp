#pragma once

#include <systemd/sd-bus.h>

#include <string>
#include <string_view>

#include "fenwa/bus_call.hpp"
#include "src/frame/failure_line.hpp"

namespace blocks {

// Steps of a block that follows the owner of a bus name. Steps and texts are the same in every
// block; the resulting states are the block's own.

/// The bus daemon itself.
inline constexpr Fenwa::BusService bus_daemon{"org.freedesktop.DBus", "/org/freedesktop/DBus",
                                              "org.freedesktop.DBus"};

/// Matches the owner changes of every name, from any sender.
inline constexpr const char* owner_change_rule =
    "type='signal',interface='org.freedesktop.DBus',member='NameOwnerChanged'";

/// A NameOwnerChanged signal; the strings live as long as its message. An empty owner means none.
struct OwnerChange {
    const char* name = nullptr;
    const char* old_owner = nullptr;
    const char* new_owner = nullptr;

    /// Whether the owner of this name has changed. False for a null name.
    [[nodiscard]] bool is_of(std::string_view followed) const noexcept {
        return name != nullptr && followed == name;
    }
    /// Whether the name has no owner now. False for a null owner.
    [[nodiscard]] bool lost() const noexcept { return new_owner != nullptr && *new_owner == '\0'; }
};

/// The bus daemon's answer to GetNameOwner.
struct OwnerAnswer {
    enum class Kind {
        owned,       ///< the name has an owner
        not_owned,   ///< the name has none
        refused,     ///< an error other than "has no owner" (logged)
        unreadable,  ///< the reply holds no string (logged)
    };

    Kind kind;
    int result;  ///< what the callback returns to sd-bus
};

// The states have the same names in each block that follows an owner.

/// The state after an answer to GetNameOwner. After an error or an unreadable answer the block asks
/// again.
template <class State>
[[nodiscard]] State state_after(const OwnerAnswer& answer) {
    switch (answer.kind) {
        case OwnerAnswer::Kind::owned:
            return State::OwnerAppeared;
        case OwnerAnswer::Kind::not_owned:
            return State::NoOwner;
        case OwnerAnswer::Kind::refused:
        case OwnerAnswer::Kind::unreadable:
            break;
    }
    return State::MatchAdded;
}

/// The state after a change of the followed name's owner.
template <class State>
[[nodiscard]] State state_after(const OwnerChange& change) {
    return change.lost() ? State::NoOwner : State::OwnerAppeared;
}

/// Logs that the match for owner changes could not be sent.
void log_owner_match_failure(int r);

/// Whether the daemon has installed the match; a refusal is logged.
[[nodiscard]] bool owner_match_installed(sd_bus_message* reply);

/// Asks for the owner of `name`, and logs if the call cannot be sent. @returns sd-bus's result.
template <auto OnReply>
int query_owner_async(sd_bus* bus, Fenwa::Slot& slot, const std::string& name,
                      typename Fenwa::Callback<OnReply>::Object& object) {
    const int r = Fenwa::call_async<OnReply>(bus, slot, bus_daemon, "GetNameOwner", object, "s",
                                             name.c_str());
    if (r < 0)
        log_errno(Level::error, "Failed to call method GetNameOwner: ", r);
    return r;
}

/// Reads the reply to GetNameOwner.
[[nodiscard]] OwnerAnswer read_owner_answer(sd_bus_message* reply);

/// Reads the body of NameOwnerChanged, and logs if it cannot. @returns the read's result.
[[nodiscard]] int read_owner_change(sd_bus_message* signal, OwnerChange& change);

/// The same in a block that checks for an error in place of the signal, which is logged.
/// @returns -1 for such an error.
[[nodiscard]] int take_owner_change(sd_bus_message* message, OwnerChange& change);

}  // namespace blocks
