#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "framework/shared/log_sink.hpp"

namespace support {

/// Takes the place of the log while it lives. Lines are "LEVEL TEXT", in the order in which they
/// were logged; one that the test has not taken fails it.
class LogRecorder {
  public:
    LogRecorder() {
        Fenwa::set_log_sink([this](int level, const std::string& message) {
            lines_.push_back(std::to_string(level) + " " + message);
        });
    }
    LogRecorder(const LogRecorder&) = delete;
    LogRecorder& operator=(const LogRecorder&) = delete;
    ~LogRecorder() {
        Fenwa::set_log_sink({});
        for (const std::string& line : lines_)
            ADD_FAILURE() << "unexpected log line: " << line;
    }

    [[nodiscard]] std::vector<std::string> take() { return std::exchange(lines_, {}); }

  private:
    std::vector<std::string> lines_;
};

}  // namespace support
