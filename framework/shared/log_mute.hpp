#pragma once

#include <map>
#include <string>

#include "fenwa/api.hpp"
#include "fenwa/debug_data.hpp"

namespace Fenwa {

/// Mutes its thread while it lives: lines of the thread are dropped, debug data that it sets is
/// visible to it alone and forgotten at the end, and blocks that it registers there are not listed.
/// Other threads, the log sink and the debug listener are not affected. Destroyed on the thread
/// that made it, the last one first.
class FENWA_API LogMute {
  public:
    LogMute();
    LogMute(const LogMute&) = delete;
    LogMute& operator=(const LogMute&) = delete;
    ~LogMute();

    /// The innermost mute of the calling thread, or null.
    [[nodiscard]] static LogMute* of_this_thread() noexcept;

    /// The debug data that the thread has set.
    [[nodiscard]] std::map<std::string, DebugValue>& debug_values() noexcept { return values_; }

    /// Mutes all threads for good, for a child process that only tries something out; a muted
    /// thread keeps its own debug data. Takes no lock: a lock that another thread of the parent
    /// held at the fork is never released.
    static void mute_process() noexcept;
    [[nodiscard]] static bool is_process_muted() noexcept;

  private:
    LogMute* outer_;
    std::map<std::string, DebugValue> values_;
};

}  // namespace Fenwa
