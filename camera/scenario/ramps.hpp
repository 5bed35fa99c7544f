#pragma once

#include <functional>
#include <map>
#include <string>

#include "camera/bus/timers.hpp"
#include "camera/scenario/scenario.hpp"

namespace camera {

/// Values that move linearly to their targets, in steps of 0.1 s.
class Ramps {
  public:
    /// @param set receives each value on the way.
    /// @param ended called when the last ramp under way has reached its target.
    Ramps(sd_event& event, std::function<void(const std::string& name, double value)> set,
          std::function<void()> ended);

    /// Starts a ramp, which replaces one of the same value. @param from the value now; from one
    /// that is not finite the ramp takes a single step.
    void start(const Ramp& ramp, double from);
    /// Ends the ramp of a value, which stays as it is.
    void cancel(const std::string& name) { under_way_.erase(name); }
    [[nodiscard]] bool idle() const noexcept { return under_way_.empty(); }

  private:
    struct UnderWay {
        double from;
        double target;
        int steps;  ///< in all
        int done;
        unsigned generation;  ///< differs from that of an earlier ramp of the same value
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
