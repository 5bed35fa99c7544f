#pragma once

#include <functional>

namespace common {

/// Runs `body` on a thread of its own that lives until the process ends; it has begun on return.
/// All signals are blocked there: the handlers of blocks never run on it.
/// @throws Failure (software) if no thread can be started.
void start_background_thread(std::function<void()> body);

}  // namespace common
