#pragma once

#include <csignal>
#include <vector>

namespace camera {

/// The signals that end a camera in order. SIGHUP is left alone where it is ignored: that is what
/// `nohup` is for.
[[nodiscard]] std::vector<int> ending_signals();

[[nodiscard]] sigset_t set_of(const std::vector<int>& signals) noexcept;

}  // namespace camera
