#include "camera/scenario/ramps.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

namespace camera {
namespace {

constexpr std::chrono::milliseconds interval{100};

}  // namespace

Ramps::Ramps(sd_event& event, std::function<void(const std::string&, double)> set,
             std::function<void()> ended)
    : set_(std::move(set)), ended_(std::move(ended)), timers_(event) {}

void Ramps::start(const Ramp& ramp, double from) {
    const double count = std::isfinite(from) ? std::ceil(ramp.over / interval - 1e-9) : 1.0;
    const unsigned generation = ++last_generation_;
    under_way_[ramp.name] = {from, ramp.target, std::max(1, static_cast<int>(count)), 0,
                             generation};
    schedule(ramp.name, generation);
}

void Ramps::schedule(const std::string& name, unsigned generation) {
    timers_.once(interval, [this, name, generation] { advance(name, generation); });
}

void Ramps::advance(const std::string& name, unsigned generation) {
    const auto it = under_way_.find(name);
    if (it == under_way_.end() || it->second.generation != generation)
        return;
    UnderWay& ramp = it->second;
    ++ramp.done;
    // The last step is the target itself, free of rounding errors.
    const bool last = ramp.done == ramp.steps;
    const double value =
        last ? ramp.target : ramp.from + (ramp.target - ramp.from) * ramp.done / ramp.steps;
    if (last)
        under_way_.erase(it);
    set_(name, value);
    if (!last)
        schedule(name, generation);
    else if (idle())
        ended_();
}

}  // namespace camera
