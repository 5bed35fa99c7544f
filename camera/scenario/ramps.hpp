#pragma once

#include <functional>
#include <map>
#include <string>

#include "camera/bus/timers.hpp"
#include "camera/scenario/scenario.hpp"

namespace camera {

/// Values on the move: each goes linearly to its target in steps of 0.1 s.
class Ramps {
  public:
    /// `set` receives each value on the way; `ended` is called when the last ramp has arrived.
    Ramps(sd_event& event, std::function<void(const std::string& name, double value)> set,
          std::function<void()> ended);

    /// Starts from `from`; from a value that is not finite it goes straight to the target. A ramp
    /// of the same value that is under way ends.
    void start(const Ramp& ramp, double from);
    /// Ends the ramp of a value where it is.
    void cancel(const std::string& name) { under_way_.erase(name); }
    [[nodiscard]] bool idle() const noexcept { return under_way_.empty(); }

  private:
    struct UnderWay {
        double from;
        double target;
        int steps;  ///< in all
        int done;
        unsigned generation;  ///< tells it from an earlier ramp of the same value
    };

    void schedule(const std::string& name, unsigned generation);
    void advance(const std::string& name, unsigned generation);

    std::function<void(const std::string&, double)> set_;
    std::function<void()> ended_;
    std::map<std::string, UnderWay> under_way_;
    unsigned last_generation_ = 0;
    Timers timers_;
};

}  // namespace camera
