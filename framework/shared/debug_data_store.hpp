#pragma once

#include <functional>
#include <string>
#include <vector>

#include "fenwa/debug_data.hpp"

namespace Fenwa {

/// Called with every value that is set, on the thread that sets it, one call at a time.
using DebugListener = std::function<void(const std::string& key, const DebugValue& value)>;

/// Replaces the listener of the process's debug-data store; empty for none.
FENWA_API void set_debug_listener(DebugListener listener);

/// Names of the blocks that are listed in the store now, in the order of registration.
[[nodiscard]] FENWA_API std::vector<std::string> debug_data_blocks();

}  // namespace Fenwa
