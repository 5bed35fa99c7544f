#pragma once

#include <span>
#include <string>
#include <string_view>

#include "tests/soak/incidents.hpp"

namespace soak {

/// The remedy for a block that has lost its service for good.
enum class Remedy {
    change,   ///< the next change of the value
    rebuild,  ///< building the block anew
    restart,  ///< the same, after a restart of its service
};

/// A case in which a block does not come back by itself, as its page says. The only cases that are
/// excused: a difference of this block, after this incident, until the remedy is applied.
struct Stall {
    std::string_view block;     ///< as a `Difference` names it
    std::string_view incident;  ///< its text, as `Incidents` counts it
    int least;                  ///< how many of them it takes
    Remedy remedy;
    std::string_view reason;
};

[[nodiscard]] std::span<const Stall> stalls() noexcept;

/// The stall that excuses a difference of this block; null if there is none. One that a change does
/// not end goes before others.
/// @param changed whether the values have changed since: then no stall counts that a change ends.
[[nodiscard]] const Stall* find_stall(std::string_view block, const Incidents& incidents,
                                      bool changed);

/// Whether the block has logged that it waits for good: it may still show every change, and stall
/// with the next restart of its service.
[[nodiscard]] bool is_latent(const Stall& stall, const Incidents& incidents);

/// For a block that is about to be built anew: what has stalled it until now counts no longer.
void forget_stalls(std::string_view block, Incidents& incidents);

}  // namespace soak
