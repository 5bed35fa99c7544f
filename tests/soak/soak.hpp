#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/soak/actions.hpp"
#include "tests/soak/scene.hpp"
#include "tests/soak/stalls.hpp"
#include "tests/soak/world.hpp"

namespace soak {

/// One soak: rounds of actions, each followed by a quiet point at which everything is compared.
class Soak {
  public:
    /// @param interrupted ends the run early once it is true.
    Soak(std::uint64_t seed, std::chrono::seconds time, const std::atomic<bool>& interrupted,
         std::ostream& out);

    /// Runs it, with a line of progress for each round, and prints the figures.
    /// @returns whether all was as it must be.
    bool run();

  private:
    using Clock = std::chrono::steady_clock;

    void play_round();
    /// Leaves the services alone and compares, changes everything and compares, builds anew what is
    /// stalled and compares.
    void compare_in_quiet();
    /// Waits until nothing differs, or only what is excused.
    [[nodiscard]] std::vector<Difference> wait_until_right(bool changed);
    /// Counts differences as excused or as lost.
    /// @param changed whether everything has changed since the services were left alone.
    /// @returns what has to be done to blocks that are stalled, or will be.
    std::map<std::string_view, Remedy> judge(const std::vector<Difference>& found, bool changed);
    void apply(Remedy remedy, std::string_view block);
    void lose(const Difference& difference, const char* when);
    void take_footprint();
    [[nodiscard]] double seconds() const;
    void print_progress();
    [[nodiscard]] bool print_figures();
    /// What the host has after the warm-up and at the end, in KiB: the least of some comparisons
    /// each, because a single one may see a burst. Nothing in a run that is too short.
    [[nodiscard]] std::optional<std::pair<long, long>> memory_since_warm_up() const;
    /// Rests, in short pieces.
    void rest(std::chrono::milliseconds time) const;

    std::chrono::seconds time_;
    const std::atomic<bool>& interrupted_;
    std::ostream& out_;
    std::uint64_t seed_;
    Wanted wanted_;
    Scene scene_;
    Actions actions_;
    Clock::time_point begin_ = Clock::now();
    Footprint at_start_;
    Footprint now_;
    double warm_at_ = 0.0;    ///< seconds; 0 before
    std::vector<long> warm_;  ///< KiB of memory since then, at each comparison
    std::uint64_t comparisons_ = 0;
    std::uint64_t without_excuse_ = 0;               ///< blocks of them that nothing excused
    std::map<const Stall*, std::uint64_t> excused_;  ///< comparisons with such a difference
    std::set<const Stall*> excused_here_;            ///< of this comparison
    std::vector<std::string> lost_;
};

}  // namespace soak
