#pragma once

#include <functional>
#include <string>

#include "fenwa/log.hpp"

namespace Fenwa {

/// Takes every line that is handed to `logger`, on the thread that logs, one call at a time. Lines
/// that it logs itself meanwhile go to stderr, as without a sink.
using LogSink = std::function<void(int level, const std::string& message)>;

/// Replaces the sink of the process; an empty one brings back the first, which writes the line
/// with its level to stderr. A sink may be replaced out of its own call, too.
FENWA_API void set_log_sink(LogSink sink);

}  // namespace Fenwa
