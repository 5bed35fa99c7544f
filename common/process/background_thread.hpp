#pragma once

#include <functional>

namespace common {

/// Runs `body` on a thread of its own that lives until the process ends. All signals are blocked
/// there: what is meant for a handler of a block never runs on it.
/// @throws std::system_error when there is no thread to be had.
void start_background_thread(std::function<void()> body);

}  // namespace common
