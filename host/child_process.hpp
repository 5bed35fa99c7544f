#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace host {

/// How a child process ended.
struct ChildEnd {
    bool timed_out = false;  ///< it was ended, because its time was over
    int signal = 0;          ///< the signal that ended it, 0 for none
    int code = 0;            ///< its exit code where it ended by itself
};

/// Sends one line, without its end, to the parent.
using LineSender = std::function<void(const std::string& line)>;

/// Does `work`, which may crash or never come back, in a copy of this process whose standard
/// streams lead nowhere, and waits until it has ended; so have the processes that it started. The
/// caller has one thread only.
/// @param limit how long it may take.
/// @param on_line gets each line that was sent, also of a child that crashed afterwards.
/// @throws std::system_error when no process can be made.
ChildEnd run_in_child(const std::function<void(const LineSender& send)>& work,
                      std::chrono::microseconds limit,
                      const std::function<void(const std::string& line)>& on_line);

}  // namespace host
