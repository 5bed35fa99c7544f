#include "common/events/event_lines.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <nlohmann/json.hpp>

#include "common/text/number_text.hpp"

namespace common {
namespace {

/// "2026-01-31T12:34:56.789+01:00"
std::string wall_time() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char date[32];
    strftime(date, sizeof date, "%FT%T", &local);
    char offset[8];
    strftime(offset, sizeof offset, "%z", &local);
    return fmt::format("{}.{:03}{:.3}:{}", date, now.tv_nsec / 1'000'000, offset, offset + 3);
}

/// @param width with `fill` in front.
void append_digits(std::string& line, std::int64_t number, std::size_t width, char fill) {
    std::array<char, 20> digits;
    const char* const end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    const auto size = static_cast<std::size_t>(end - digits.data());
    line.append(width - std::min(width, size), fill).append(digits.data(), size);
}

}  // namespace

void EventLines::write_json(std::string_view event, const Json& members) {
    const std::string line = json_event(event, members);
    const std::lock_guard lock(mutex_);
    out_.write(line);
}

void EventLines::append_stamp(std::string& line, const Palette& palette) const {
    if (timestamps_ == Timestamps::none)
        return;
    line += palette.dim;
    if (timestamps_ == Timestamps::wall) {
        line += wall_time();
    } else {
        // As "{:8.3f}" of the seconds.
        const auto milliseconds = (watch_.elapsed().count() + 500) / 1000;
        append_digits(line, milliseconds / 1000, 4, ' ');
        line += '.';
        append_digits(line, milliseconds % 1000, 3, '0');
    }
    line.append(palette.reset).append("  ");
}

std::string EventLines::json_event(std::string_view event, const Json& members) const {
    std::string line;
    begin_json(line, event);
    const std::string object = json_line(members);
    if (!members.empty())
        line.append(",").append(object, 1, object.size() - 2);
    return line + "}\n";
}

void EventLines::begin_json(std::string& line, std::string_view event) const {
    line.assign("{\"event\":\"").append(event).append("\",\"time\":");
    append_number(line, seconds());
}

}  // namespace common
