#include "fenwa/testkit/recorders.hpp"

#include <mutex>
#include <utility>

#include "framework/shared/debug_data_store.hpp"
#include "framework/shared/log_sink.hpp"

namespace Fenwa::testkit {
namespace {

/// What threads have recorded since the last time.
template <class Entry>
class Records {
  public:
    void add(Entry entry) {
        const std::lock_guard lock(mutex_);
        entries_.push_back(std::move(entry));
    }
    std::vector<Entry> take() {
        const std::lock_guard lock(mutex_);
        return std::exchange(entries_, {});
    }

  private:
    std::mutex mutex_;
    std::vector<Entry> entries_;
};

}  // namespace

struct LogRecorder::State : Records<LogLine> {};
struct DebugRecorder::State : Records<DebugEntry> {};

LogRecorder::LogRecorder() : state_(std::make_shared<State>()) {
    set_log_sink([state = state_](int level, const std::string& message) {
        state->add({level, message});
    });
}

LogRecorder::~LogRecorder() {
    set_log_sink({});
}

std::vector<LogLine> LogRecorder::take() {
    return state_->take();
}

DebugRecorder::DebugRecorder() : state_(std::make_shared<State>()) {
    set_debug_listener([state = state_](const std::string& key, const DebugValue& value) {
        state->add({key, value});
    });
}

DebugRecorder::~DebugRecorder() {
    set_debug_listener({});
}

std::vector<DebugEntry> DebugRecorder::take() {
    return state_->take();
}

}  // namespace Fenwa::testkit
