#include "fenwa/log.hpp"

#include <cstdarg>
#include <cstdio>
#include <memory>
#include <mutex>
#include <new>
#include <string>

#include "framework/shared/log_mute.hpp"
#include "framework/shared/log_sink.hpp"

namespace Fenwa {
namespace {

struct SinkHolder {
    std::recursive_mutex mutex;  ///< the sink may log, and may be replaced out of its own call
    std::shared_ptr<const LogSink> sink;
    bool busy = false;  ///< with the mutex held: this thread is in a call of the sink
};

/// Marks the sink as busy until the call ends.
class Call {
  public:
    explicit Call(bool& busy) : busy_(busy) { busy_ = true; }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;
    ~Call() { busy_ = false; }

  private:
    bool& busy_;
};

SinkHolder& holder() {
    static SinkHolder instance;
    return instance;
}

std::string format_text(const char* format, std::va_list arguments) {
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    std::string text(length < 0 ? 0 : static_cast<std::size_t>(length), '\0');
    if (length > 0)
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    return text;
}

void hand_to_sink(int level, const std::string& message) {
    SinkHolder& holder = Fenwa::holder();
    const std::lock_guard lock(holder.mutex);
    // A line that the sink logs would call the sink without end.
    if (holder.sink == nullptr || holder.busy) {
        std::fprintf(stderr, "<%d>%s\n", level, message.c_str());
        return;
    }
    const std::shared_ptr<const LogSink> sink = holder.sink;
    const Call call(holder.busy);
    (*sink)(level, message);
}

}  // namespace

void set_log_sink(LogSink sink) {
    auto shared = sink ? std::make_shared<const LogSink>(std::move(sink)) : nullptr;
    const std::lock_guard lock(holder().mutex);
    holder().sink.swap(shared);
}

}  // namespace Fenwa

void logger(int level, const char* format, ...) {
    if (Fenwa::LogMute::of_this_thread() != nullptr || Fenwa::LogMute::is_process_muted())
        return;
    std::va_list arguments;
    va_start(arguments, format);
    std::va_list again;
    va_copy(again, arguments);
    try {
        Fenwa::hand_to_sink(level, Fenwa::format_text(format, arguments));
    } catch (const std::bad_alloc&) {
        // Most lines come from destructors, which may not throw. stderr has memory of its own.
        std::fprintf(stderr, "<%d>", level);
        std::vfprintf(stderr, format, again);
        std::fputc('\n', stderr);
    }
    va_end(again);
    va_end(arguments);
}
