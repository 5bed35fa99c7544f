#pragma once

#include <chrono>
#include <cstdint>

namespace common {

/// Microseconds of CLOCK_MONOTONIC, as sd-event counts them.
[[nodiscard]] inline std::uint64_t monotonic_now() noexcept {
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(
                                          std::chrono::steady_clock::now().time_since_epoch())
                                          .count());
}

}  // namespace common
