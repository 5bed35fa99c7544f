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
    if (size < width)
        line.append(width - size, fill);
    line.append(digits.data(), size);
}

}  // namespace

void EventLines::write_json(std::string_view event, const Json& members) {
    const std::string line = json_event(event, members);
    const std::lock_guard lock(mutex_);
    out_.write(line);
}

std::string EventLines::stamp(const Palette& palette) const {
    if (timestamps_ == Timestamps::none)
        return {};
    std::string time;
    if (timestamps_ == Timestamps::wall) {
        time = wall_time();
    } else {
        // As "{:8.3f}" of the seconds.
        const std::int64_t milliseconds = rounded_milliseconds();
        append_digits(time, milliseconds / 1000, 4, ' ');
        time += '.';
        append_digits(time, milliseconds % 1000, 3, '0');
    }
    return fmt::format("{}{}{}  ", palette.dim, time, palette.reset);
}

std::int64_t EventLines::rounded_milliseconds() const {
    return (watch_.elapsed().count() + 500) / 1000;
}

void EventLines::begin_text() {
    // Lines that come quickly share their stamp.
    const std::int64_t now =
        timestamps_ == Timestamps::relative ? rounded_milliseconds() : not_stamped;
    if (now == not_stamped || now != stamped_)
        stamp_ = stamp(palette_);
    stamped_ = now;
    line_ = stamp_;
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
    line.clear();
    line.append("{\"event\":\"").append(event).append("\",\"time\":");
    append_seconds(line, watch_.elapsed());
}

}  // namespace common
