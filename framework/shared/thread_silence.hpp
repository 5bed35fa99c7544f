#pragma once

#include <map>
#include <string>

#include "fenwa/api.hpp"
#include "fenwa/debug_data.hpp"

namespace Fenwa {

/// While one is there, its thread talks to itself: the lines that it logs are dropped, the debug
/// data that it sets is seen by itself alone and forgotten at the end, and the blocks that it
/// registers there are not listed. All other threads, the log sink and the debug listener are left
/// alone. Destroyed on the thread that made it, the last one first.
class FENWA_API ThreadSilence {
  public:
    ThreadSilence();
    ThreadSilence(const ThreadSilence&) = delete;
    ThreadSilence& operator=(const ThreadSilence&) = delete;
    ~ThreadSilence();

    /// The last one of the calling thread, or null.
    [[nodiscard]] static ThreadSilence* of_this_thread() noexcept;

    /// The debug data that was set meanwhile.
    [[nodiscard]] std::map<std::string, DebugValue>& debug_values() noexcept { return values_; }

    /// From here on no thread of the process is heard, for a process that is thrown away after it
    /// has tried something out: nobody's lines and debug data are kept, except a silent thread's
    /// own for itself. Takes no lock, because a process that was forked off others' threads may
    /// never get it.
    static void of_whole_process() noexcept;
    [[nodiscard]] static bool is_of_whole_process() noexcept;

  private:
    ThreadSilence* outer_;
    std::map<std::string, DebugValue> values_;
};

}  // namespace Fenwa
