#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "tests/soak/scene.hpp"
#include "tests/soak/world.hpp"

namespace soak {

/// The actions of a soak on host and camera. The seed alone decides on their kinds and order:
/// nothing that is drawn depends on the time or on what the programs do.
class Actions {
  public:
    Actions(std::uint64_t seed, Scene& scene, Wanted& wanted)
        : seed_(seed), scene_(scene), wanted_(wanted) {}

    /// Draws anew for the next round, so that it is the same whatever the last comparison needed.
    /// About half of the services work without a fault in it: nothing excuses their blocks.
    void begin_round();
    /// Does one thing, and rests a moment.
    void do_next();
    /// Removes every fault rule and brings every service up.
    void leave_alone();
    /// Gives every value of the camera another side of its limit, the greeting another text, and
    /// turns the picture.
    void change_everything();

    [[nodiscard]] std::uint64_t reloads() const noexcept { return reloads_; }
    [[nodiscard]] std::uint64_t rebuilds() const noexcept { return rebuilds_; }
    void rebuild(const char* block);

  private:
    /// A number from 0 on, below `count`. By hand, because the standard distributions differ
    /// between standard libraries.
    [[nodiscard]] std::uint64_t draw(std::uint64_t count) { return random_() % count; }
    [[nodiscard]] bool one_in(std::uint64_t count) { return draw(count) == 0; }
    [[nodiscard]] const char* draw_service() { return disturbed_[draw(disturbed_.size())]; }

    void change_value();
    void reload();
    void change_settings();
    /// Changes the text of the greeting, for the next reload.
    void change_text();
    void set_fault();
    void crash_with_fault();
    void set_values(const Values& values);
    void turn();
    [[nodiscard]] double hot() { return 76.0 + static_cast<double>(draw(10)); }
    [[nodiscard]] double cool() { return 30.0 + static_cast<double>(draw(25)); }
    [[nodiscard]] double enough() { return 20.0 + static_cast<double>(draw(6)); }
    [[nodiscard]] double too_little() { return 1.0 + static_cast<double>(draw(10)); }
    /// A budget below each request that differs from the last one.
    [[nodiscard]] double other_budget();

    std::uint64_t seed_;
    std::uint64_t rounds_ = 0;
    std::mt19937_64 random_;
    std::vector<const char*> disturbed_;  ///< the services whose faults this round draws; not empty
    Scene& scene_;
    Wanted& wanted_;
    std::uint64_t reloads_ = 0;
    std::uint64_t rebuilds_ = 0;
};

}  // namespace soak
