#include "common/events/event_lines.hpp"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace common {

void EventLines::write_json(std::string_view event, const Json& members) {
    const std::string object = common::json_line(members);
    write_json_members(event, std::string_view(object).substr(1, object.size() - 2));
}

void EventLines::write_json_members(std::string_view event, std::string_view members) {
    write(json_event(event, members));
}

void EventLines::write_text(std::string_view text) {
    write(fmt::format("{}{:8.3f}{}  {}\n", palette_.dim, seconds(), palette_.reset, text));
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
