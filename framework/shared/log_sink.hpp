#pragma once

#include <functional>
#include <string>

#include "fenwa/log.hpp"

namespace Fenwa {

/// Called with every line that is logged, on the thread that logs, one call at a time. Lines that
/// the sink logs itself go to stderr, as without a sink.
using LogSink = std::function<void(int level, const std::string& message)>;

/// Replaces the sink of the process, also in a call of the sink. An empty one writes each line with
/// its level to stderr.
FENWA_API void set_log_sink(LogSink sink);

}  // namespace Fenwa
