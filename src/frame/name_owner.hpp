#pragma once

#include <systemd/sd-bus.h>

#include <string>
#include <string_view>

#include "src/frame/bus_call.hpp"
#include "src/frame/failure_line.hpp"

namespace blocks {

// How a block follows the owner of a bus name. The steps and their texts are the same in every
// block; the states that they lead to are the block's own.

/// The bus daemon itself.
inline constexpr BusService bus_daemon{"org.freedesktop.DBus", "/org/freedesktop/DBus",
                                       "org.freedesktop.DBus"};

/// Brings in the owner changes of every name, from any sender.
inline constexpr const char* owner_change_rule =
    "type='signal',interface='org.freedesktop.DBus',member='NameOwnerChanged'";

/// A NameOwnerChanged signal; the strings live as long as its message. An empty owner is none.
struct OwnerChange {
    const char* name = nullptr;
    const char* old_owner = nullptr;
    const char* new_owner = nullptr;

    /// Whether it is the owner of this name that has changed. A null name is none.
    [[nodiscard]] bool is_of(std::string_view followed) const noexcept {
        return name != nullptr && followed == name;
    }
    /// Whether nobody owns the name any more. A null owner is not the empty one.
    [[nodiscard]] bool lost() const noexcept { return new_owner != nullptr && *new_owner == '\0'; }
};

/// What the bus daemon answered to GetNameOwner.
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

// The states of a block that follows an owner bear the same names in each such block.

/// The state that an answer to the question for the owner leads to; where there was none to be
/// had, the question is to be asked again.
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

/// The state that a change of the followed name's owner leads to.
template <class State>
[[nodiscard]] State state_after(const OwnerChange& change) {
    return change.lost() ? State::NoOwner : State::OwnerAppeared;
}

/// Says that the match for owner changes could not be sent.
void log_owner_match_failure(int r);

/// Whether the daemon has installed the match; a refusal is logged.
[[nodiscard]] bool owner_match_installed(sd_bus_message* reply);

/// Asks for the owner of `name`, logging when that cannot be sent. @returns what sd-bus returned.
template <auto OnReply>
int query_owner_async(sd_bus* bus, Slot& slot, const std::string& name,
                      typename Callback<OnReply>::Object& object) {
    const int r =
        call_async<OnReply>(bus, slot, bus_daemon, "GetNameOwner", object, "s", name.c_str());
    if (r < 0)
        log_errno(Level::error, "Failed to call method GetNameOwner: ", r);
    return r;
}

/// Reads the reply to GetNameOwner.
[[nodiscard]] OwnerAnswer read_owner_answer(sd_bus_message* reply);

/// Reads the body of NameOwnerChanged, logging when it is another one. @returns the read's result.
[[nodiscard]] int read_owner_change(sd_bus_message* signal, OwnerChange& change);

/// The same in a block that looks whether an error has come in place of the signal, which is logged
/// and gives -1.
[[nodiscard]] int take_owner_change(sd_bus_message* message, OwnerChange& change);

}  // namespace blocks
