#pragma once

#include <cstddef>
#include <deque>
#include <fenwa/fenwa.hpp>
#include <string>

namespace blocks {

/// Publishes on "out" (double) the mean of the last "samples" values of "in" (double). "samples" is
/// a whole number from 1 to 1000, 10 without the key, and can be changed while the block runs.
class MovingAverage : public Fenwa::Block {
  public:
    /// @throws Fenwa::ConfigurationError when "samples" is wrong.
    MovingAverage(std::string name, const Fenwa::BlockConfiguration& config);

    bool run() override;
    /// The latest values stay. @throws Fenwa::ConfigurationError when "samples" is wrong; nothing
    /// changes then.
    void reconfigure(const Fenwa::BlockConfiguration& before,
                     const Fenwa::BlockConfiguration& after) override;

  private:
    std::size_t samples_;
    Fenwa::InPort<double>* in_;
    Fenwa::OutPort<double>* out_;
    std::deque<double> values_;
};

}  // namespace blocks
