#include "blocks/moving_average.hpp"

#include <numeric>
#include <utility>

namespace blocks {
namespace {

std::size_t samples_of(const Fenwa::BlockConfiguration& config) {
    const int samples = config.getInt("samples", 10);
    if (samples < 1 || samples > 1000)
        throw Fenwa::ConfigurationError("samples", "int from 1 to 1000",
                                        "the integer " + std::to_string(samples));
    return static_cast<std::size_t>(samples);
}

}  // namespace

MovingAverage::MovingAverage(std::string name, const Fenwa::BlockConfiguration& config)
    : Fenwa::Block(std::move(name), config),
      samples_(samples_of(config)),
      in_(Fenwa::add_inport<double>(*this, "in")),
      out_(Fenwa::add_outport<double>(*this, "out")) {}

bool MovingAverage::run() {
    values_.push_back(in_->value());
    while (values_.size() > samples_)
        values_.pop_front();
    const double sum = std::accumulate(values_.begin(), values_.end(), 0.0);
    out_->publish(sum / static_cast<double>(values_.size()));
    return true;
}

void MovingAverage::reconfigure(const Fenwa::BlockConfiguration& /*before*/,
                                const Fenwa::BlockConfiguration& after) {
    samples_ = samples_of(after);
}

}  // namespace blocks
