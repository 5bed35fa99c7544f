#pragma once

namespace host {

/// From here on a crash (SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL) puts a line on stderr that names
/// the block and its operation; then it goes on as it would have without. Thread of the loop, whose
/// stack may have no room left.
void report_crashes() noexcept;

/// While one lives, an end of the process by exit(3) is not taken for a success: it is a block's or
/// a plug-in's doing, gets a line that names it, and the exit code for a throw.
class ExitGuard {
  public:
    ExitGuard() noexcept;
    ExitGuard(const ExitGuard&) = delete;
    ExitGuard& operator=(const ExitGuard&) = delete;
    ~ExitGuard();
};

}  // namespace host
