#pragma once

#include <string_view>

#include "common/process/exit_code.hpp"

namespace common {

/// Writes the whole text to stdout, for a command that prints once and ends. A reader that has
/// gone, as `head` goes, has seen enough, and so has a starter that has closed stdout. SIGPIPE must
/// be ignored, as `run_command_line` has it.
/// @throws Failure (unavailable) when stdout takes no more, as on a full disk.
void print_text(std::string_view text);

/// The exit code when stderr, on which a command may have its results, has failed: unavailable in
/// place of done, unless its reader has gone.
[[nodiscard]] ExitCode code_after_stderr(ExitCode code);

}  // namespace common
