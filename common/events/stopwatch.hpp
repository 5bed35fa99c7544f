#pragma once

#include <chrono>

namespace common {

/// Measures the time since its construction.
class Stopwatch {
  public:
    /// Seconds since the start, to the microsecond.
    [[nodiscard]] double seconds() const {
        const auto passed = std::chrono::duration_cast<std::chrono::microseconds>(
            std::chrono::steady_clock::now() - start_);
        return static_cast<double>(passed.count()) / 1e6;
    }

  private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace common
