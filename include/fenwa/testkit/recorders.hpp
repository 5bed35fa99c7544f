#pragma once

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "fenwa/debug_data.hpp"

namespace Fenwa::testkit {

/// One line of the log.
struct LogLine {
    int level;  ///< 1 error, 2 warning, 4 information
    std::string text;

    friend bool operator==(const LogLine&, const LogLine&) = default;
};

/// Takes the place of the log while it lives; one at a time.
class LogRecorder {
  public:
    LogRecorder();
    LogRecorder(const LogRecorder&) = delete;
    LogRecorder& operator=(const LogRecorder&) = delete;
    ~LogRecorder();

    /// The lines of the process since they were taken the last time. Any thread.
    [[nodiscard]] std::vector<LogLine> take();

  private:
    struct State;

    std::shared_ptr<State> state_;
};

/// One value that a block has put into the debug-data store.
struct DebugEntry {
    std::string key;
    DebugValue value;

    friend bool operator==(const DebugEntry&, const DebugEntry&) = default;
};

/// Records the values that are put into the debug-data store while it lives; one at a time.
class DebugRecorder {
  public:
    DebugRecorder();
    DebugRecorder(const DebugRecorder&) = delete;
    DebugRecorder& operator=(const DebugRecorder&) = delete;
    ~DebugRecorder();

    /// The values since they were taken the last time. Any thread.
    [[nodiscard]] std::vector<DebugEntry> take();

  private:
    struct State;

    std::shared_ptr<State> state_;
};

// GoogleTest prints them so, too.
/// "error: TEXT", also "warning", "information" or "level N".
std::ostream& operator<<(std::ostream& out, const LogLine& line);
/// "KEY = VALUE", with texts in quotes.
std::ostream& operator<<(std::ostream& out, const DebugEntry& entry);

}  // namespace Fenwa::testkit
