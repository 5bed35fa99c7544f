#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace common {

/// How a child process ended.
struct ChildEnd {
    bool timed_out = false;  ///< it was ended, because its time was over
    int signal = 0;          ///< the signal that ended it, 0 for none
    int code = 0;            ///< its exit code where it ended by itself
};

/// Sends one line, without its end, to the parent.
using LineSender = std::function<void(const std::string& line)>;

/// Gets each line that was sent, also of a child that crashed afterwards.
/// @returns whether the child's time begins anew.
using LineReceiver = std::function<bool(const std::string& line)>;

/// Does `work`, which may crash or never come back, in a copy of this process whose standard
/// streams lead nowhere, and waits until it has ended; so have the processes that it started. Only
/// the calling thread exists in the copy: `work` takes no lock that another thread may have held.
/// @param limit how long it may take.
/// @throws std::system_error when no process can be made.
ChildEnd run_in_child(const std::function<void(const LineSender& send)>& work,
                      std::chrono::microseconds limit, const LineReceiver& on_line);

/// The misbehaviour of a child that ended too early or not at all: "crashed in its constructor:
/// SIGSEGV", "ended the process in its constructor with exit code 3", "did not come back from its
/// constructor within 5 s".
/// @param phase its operation: "its constructor".
[[nodiscard]] std::string misbehaviour(const ChildEnd& end, const std::string& phase,
                                       std::chrono::microseconds limit);

}  // namespace common
