#pragma once

#include <memory>
#include <string>
#include <vector>

#include "framework/shared/log_sink.hpp"
#include "tests/support/effect_journal.hpp"

namespace support {

/// Takes the place of the log while it lives, and puts its lines into the journal: "LEVEL TEXT".
class LogRecorder {
  public:
    LogRecorder() {
        Fenwa::set_log_sink([this](int level, const std::string& message) {
            journal_->record(effect::line, std::to_string(level) + " " + message);
        });
    }
    LogRecorder(const LogRecorder&) = delete;
    LogRecorder& operator=(const LogRecorder&) = delete;
    ~LogRecorder() { Fenwa::set_log_sink({}); }

    /// The lines alone.
    [[nodiscard]] std::vector<std::string> take() { return journal_->take(effect::line); }

  private:
    std::shared_ptr<EffectJournal> journal_ = EffectJournal::shared();
};

}  // namespace support
