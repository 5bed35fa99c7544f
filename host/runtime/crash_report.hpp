#pragma once

namespace host {

/// From here on a crash (SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL) writes a line on stderr that
/// names the block and its operation; then it takes its course. Thread of the loop, whose stack may
/// be full.
void report_crashes() noexcept;

/// While one lives, an end of the process by exit(3) counts as a failure of a block or a plug-in:
/// it writes a line that names it, and ends with the exit code for a throw.
class ExitGuard {
  public:
    ExitGuard() noexcept;
    ExitGuard(const ExitGuard&) = delete;
    ExitGuard& operator=(const ExitGuard&) = delete;
    ~ExitGuard();
};

}  // namespace host
