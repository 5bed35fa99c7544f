#include "fenwa/log.hpp"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>

#include "framework/shared/log_sink.hpp"

namespace Fenwa {
namespace {

struct SinkHolder {
    std::mutex mutex;
    LogSink sink;
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

}  // namespace

void set_log_sink(LogSink sink) {
    const std::lock_guard lock(holder().mutex);
    holder().sink = std::move(sink);
}

}  // namespace Fenwa

void logger(int level, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const std::string message = Fenwa::format_text(format, arguments);
    va_end(arguments);

    Fenwa::SinkHolder& holder = Fenwa::holder();
    const std::lock_guard lock(holder.mutex);
    if (holder.sink)
        holder.sink(level, message);
    else
        std::fprintf(stderr, "<%d>%s\n", level, message.c_str());
}
