#pragma once

namespace host {

/// From here on a crash (SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL) writes a line on stderr that
/// names the block and its operation; then it takes its course. What was logged before comes first.
/// Once; thread of the loop, whose stack may be full.
void report_crashes() noexcept;

/// While one lives, an end of the process by exit(3), or by _exit(2) in an operation of a block or
/// plug-in, counts as a failure of theirs: it writes a line that names it, and ends with the exit
/// code for a throw. From its end on, until the plug-ins are unloaded, a crash and a hang are
/// theirs.
class ExitGuard {
  public:
    ExitGuard() noexcept;
    ExitGuard(const ExitGuard&) = delete;
    ExitGuard& operator=(const ExitGuard&) = delete;
    ~ExitGuard();
};

/// Ends the process with a line and the exit code for a throw if somebody has closed the
/// descriptors of the host while an ExitGuard lives, as a program does that becomes a daemon: their
/// numbers would soon stand for something else. The line names the current activity. Thread of the
/// loop.
void end_without_descriptors() noexcept;

}  // namespace host
