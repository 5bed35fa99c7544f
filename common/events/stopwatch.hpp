#pragma once

#include <chrono>
#include <string>

namespace common {

/// Measures the time since a start. Programs that share one have it in the environment as
/// FENWA_START, in microseconds of CLOCK_MONOTONIC. Without that variable, or if it is not a whole
/// number or lies in the future, the start is the construction. Any thread.
class Stopwatch {
  public:
    /// The name of the variable.
    static constexpr const char* variable = "FENWA_START";

    Stopwatch();

    /// The time since the start.
    [[nodiscard]] std::chrono::microseconds elapsed() const;
    /// The same in seconds.
    [[nodiscard]] double seconds() const;

    /// "FENWA_START=NUMBER", for the environment of programs that count from this start.
    [[nodiscard]] std::string to_environment() const;

  private:
    std::chrono::microseconds start_;  ///< of CLOCK_MONOTONIC
};

}  // namespace common
