#pragma once

#include <systemd/sd-bus.h>

#include "fenwa/bus_call.hpp"
#include "src/frame/name_owner.hpp"
#include "src/frame/overlapping_calls.hpp"

namespace blocks {

/// One block's match for owner changes, beside the block's slot for it. Knows which equal matches
/// of this plug-in's blocks are installed or requested, so that releasing a refused one harms none
/// of them: for each released slot, sd-bus removes a rule from the daemon, and the daemon removes
/// any equal rule of the connection.
///
/// Any thread, as long as the functions of one object are not called at the same time.
class OwnerMatch {
  public:
    OwnerMatch() = default;
    OwnerMatch(const OwnerMatch&) = delete;
    OwnerMatch& operator=(const OwnerMatch&) = delete;
    /// Releases the refused matches that were kept.
    ~OwnerMatch();

    /// Starts the installation, and logs if it cannot be sent.
    /// @param slot holds the match on success; an earlier one is kept until it may be released.
    template <auto OnChange, auto OnInstalled>
    void install_async(sd_bus* bus, Fenwa::Slot& slot,
                       typename Fenwa::Callback<OnChange>::Object& object) {
        // Before the call: the answer may come on another thread before the call returns.
        move_to(State::requested, bus, &slot);
        const int r =
            Fenwa::match_rule_async<OnChange, OnInstalled>(bus, slot, owner_change_rule, object);
        if (r < 0)
            fail(r);
    }

    /// Installs the match, waits for the answer, and logs a failure.
    /// @param slot empty; holds the match on success.
    template <auto OnChange>
    void install(sd_bus* bus, Fenwa::Slot& slot,
                 typename Fenwa::Callback<OnChange>::Object& object) {
        move_to(State::requested, bus);
        const int r = sd_bus_add_match(bus, slot.out(), owner_change_rule,
                                       Fenwa::Callback<OnChange>::call, &object);
        if (r < 0)
            fail(r);
        else
            answered(true);
    }

    /// The daemon has answered.
    void answered(bool installed) noexcept;

    /// Empties `slot` of a refused match and releases it. While an equal match is installed or
    /// requested on the connection, keeps it instead, until a later refusal without such a match.
    /// In the install callback.
    void discard(Fenwa::Slot& slot);

    /// The block has released its match: releases the kept ones.
    void released() noexcept;

  private:
    enum class State {
        none,       ///< not requested, or released
        requested,  ///< the daemon has not answered
        installed,
        refused
    };

    void move_to(State state, sd_bus* bus, Fenwa::Slot* superseded = nullptr) noexcept;
    void fail(int r);
    /// Whether the daemon may have this rule. Under the lock.
    [[nodiscard]] bool may_hold_rule(const sd_bus* bus) const noexcept {
        return bus_ == bus && (state_ == State::requested || state_ == State::installed);
    }

    State state_ = State::none;
    bool listed_ = false;
    OwnerMatch* next_ = nullptr;  ///< in the list of all that have been requested
    sd_bus* bus_ = nullptr;
    SupersededSlots kept_;
};

}  // namespace blocks
