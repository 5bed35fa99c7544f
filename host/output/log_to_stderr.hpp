#pragma once

#include <string>

namespace host {

/// Takes log lines of the process while no event writer does, as a plug-in's entry point may log:
/// "<LEVEL>MESSAGE" on stderr, like without a sink, but safe for a line. Any thread.
void log_to_stderr(int level, const std::string& message);

}  // namespace host
