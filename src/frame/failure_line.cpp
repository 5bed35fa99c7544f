#include "src/frame/failure_line.hpp"

#include <cstring>

#include "fenwa/log.hpp"

namespace blocks {
namespace {

void log_line(Level level, const char* prefix, const char* detail) {
    Fenwa::ilog(static_cast<int>(level)) << prefix << detail;
}

}  // namespace

void log_errno(Level level, const char* prefix, int r) {
    log_line(level, prefix, std::strerror(-r));
}

int log_error_message(const char* prefix, sd_bus_message* message) {
    const char* text = nullptr;
    const int r = sd_bus_message_read(message, "s", &text);
    log_line(Level::error, prefix, r < 0 ? "unknown" : text);
    return r;
}

void log_exception(Level level, const char* prefix, const std::exception& exception) {
    log_line(level, prefix, exception.what());
}

int log_error_argument(Level level, const char* prefix, const sd_bus_error& error) {
    log_line(level, prefix, error.message);
    return -sd_bus_error_get_errno(&error);
}

}  // namespace blocks
