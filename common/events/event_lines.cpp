#include "common/events/event_lines.hpp"

#include <fmt/format.h>

#include <ctime>
#include <nlohmann/json.hpp>

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
    const std::string object = common::json_line(members);
    write_json_members(event, std::string_view(object).substr(1, object.size() - 2));
}

void EventLines::write_json_members(std::string_view event, std::string_view members) {
    write(json_event(event, members));
}

void EventLines::write_text(std::string_view text) {
    std::string line = stamp(palette_);
    line.append(text).push_back('\n');
    write(line);
}

std::string EventLines::stamp(const Palette& palette) const {
    if (timestamps_ == Timestamps::none)
        return {};
    if (timestamps_ == Timestamps::wall)
        return fmt::format("{}{}{}  ", palette.dim, wall_time(), palette.reset);
    return fmt::format("{}{:8.3f}{}  ", palette.dim, seconds(), palette.reset);
}

std::string EventLines::json_event(std::string_view event, std::string_view members) const {
    return fmt::format(R"({{"event":"{}","time":{}{}{}}})"
                       "\n",
                       event, json_line(seconds()), members.empty() ? "" : ",", members);
}

void EventLines::write(const std::string& line) {
    const std::lock_guard lock(mutex_);
    out_.write(line);
}

}  // namespace common
