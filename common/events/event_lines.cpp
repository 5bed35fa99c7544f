#include "common/events/event_lines.hpp"

#include <fmt/compile.h>

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

}  // namespace

void EventLines::write_json(std::string_view event, const Json& members) {
    const std::string line = json_event(event, members);
    const std::lock_guard lock(mutex_);
    out_.write(line);
}

std::string EventLines::stamp(const Palette& palette) const {
    switch (timestamps_) {
        case Timestamps::relative:
            return relative_stamp(palette, milliseconds());
        case Timestamps::wall:
            return fmt::format("{}{}{}  ", palette.dim, wall_time(), palette.reset);
        case Timestamps::none:
            break;
    }
    return {};
}

std::int64_t EventLines::milliseconds() const {
    return (watch_.elapsed().count() + 500) / 1000;
}

std::string EventLines::relative_stamp(const Palette& palette, std::int64_t milliseconds) {
    // A slow machine stamps nearly each line anew: neither a double nor the format is read then.
    return fmt::format(FMT_COMPILE("{}{:4}.{:03}{}  "), palette.dim, milliseconds / 1000,
                       milliseconds % 1000, palette.reset);
}

void EventLines::begin_text() {
    if (timestamps_ != Timestamps::relative) {
        line_ = stamp(palette_);
        return;
    }
    // Lines that come quickly share their stamp.
    const std::int64_t now = milliseconds();
    if (stamp_.empty() || now != stamped_)
        stamp_ = relative_stamp(palette_, now);
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
