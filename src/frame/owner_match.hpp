#pragma once

#include <systemd/sd-bus.h>

#include "src/frame/bus_call.hpp"
#include "src/frame/name_owner.hpp"
#include "src/frame/slot.hpp"

namespace blocks {

/// One block's match for owner changes, beside the block's slot for it. Knows which of the equal
/// matches of this plug-in's blocks are installed or asked for, so that releasing a refused one
/// harms none of them: sd-bus removes a rule from the daemon for each slot that is released, and
/// the daemon takes whichever equal rule the connection has.
///
/// Any thread, as long as the functions of one object are not called at the same time.
class OwnerMatch {
  public:
    OwnerMatch() = default;
    OwnerMatch(const OwnerMatch&) = delete;
    OwnerMatch& operator=(const OwnerMatch&) = delete;
    /// Releases the refused matches that were kept.
    ~OwnerMatch();

    /// Starts the installation, logging when it cannot be sent.
    /// @param slot holds the match on success; one that it holds before is kept.
    template <auto OnChange, auto OnInstalled>
    void install_async(sd_bus* bus, Slot& slot, typename Callback<OnChange>::Object& object) {
        // Before it is sent: the answer may come on another thread before this call returns.
        move_to(State::requested, bus, &slot);
        const int r = match_rule_async<OnChange, OnInstalled>(bus, slot, owner_change_rule, object);
        if (r < 0)
            fail(r);
    }

    /// Installs the match and waits until it is, logging when it cannot be.
    /// @param slot empty; holds the match on success.
    template <auto OnChange>
    void install(sd_bus* bus, Slot& slot, typename Callback<OnChange>::Object& object) {
        move_to(State::requested, bus);
        const int r =
            sd_bus_add_match(bus, slot.out(), owner_change_rule, Callback<OnChange>::call, &object);
        if (r < 0)
            fail(r);
        else
            answered(true);
    }

    /// The daemon has answered.
    void answered(bool installed) noexcept;

    /// Takes a match that the daemon has refused out of `slot`, for the next one, and releases it.
    /// Where an equal one is installed or asked for on the connection, it is kept instead, until
    /// there is none any more when a match is refused. In the install callback.
    void discard(Slot& slot);

    /// The block has released its match: releases those that were kept.
    void released() noexcept;

  private:
    enum class State {
        none,       ///< nothing asked for, or released
        requested,  ///< the daemon has not answered
        installed,
        refused
    };

    void move_to(State state, sd_bus* bus, Slot* superseded = nullptr) noexcept;
    void fail(int r);
    /// Whether the daemon may have this rule. Under the lock.
    [[nodiscard]] bool may_hold_rule(const sd_bus* bus) const noexcept {
        return bus_ == bus && (state_ == State::requested || state_ == State::installed);
    }

    State state_ = State::none;
    bool listed_ = false;
    OwnerMatch* next_ = nullptr;  ///< in the list of all that have ever been asked for
    sd_bus* bus_ = nullptr;
    SupersededSlots kept_;
};

}  // namespace blocks
