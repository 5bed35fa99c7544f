#pragma once

#include <mutex>
#include <string>
#include <string_view>

#include "common/events/standard_output.hpp"
#include "common/events/stopwatch.hpp"
#include "common/text/json.hpp"
#include "common/text/terminal.hpp"

namespace common {

/// text: lines for people. json: one JSON object a line, for programs.
enum class EventFormat { text, json };

/// The time in front of a line of text: seconds since the start, the local date and time with the
/// offset from UTC, or none.
enum class Timestamps { relative, wall, none };

/// Writes what happens on stdout, one line an event, each at once and whole. Times count from the
/// start of a `Stopwatch`. Any thread.
class EventLines {
  public:
    /// @param out outlives this object.
    /// @param color of text; JSON has none.
    /// @param timestamps of text; JSON has seconds since the start.
    EventLines(StandardOutput& out, EventFormat format, ColorChoice color,
               Timestamps timestamps = Timestamps::relative)
        : out_(out), format_(format), timestamps_(timestamps), palette_(use_color(color, stdout)) {}

    [[nodiscard]] EventFormat format() const noexcept { return format_; }
    /// Empty sequences where text has no colours.
    [[nodiscard]] const Palette& palette() const noexcept { return palette_; }
    [[nodiscard]] double seconds() const { return watch_.seconds(); }
    /// The start from which the times count.
    [[nodiscard]] const Stopwatch& watch() const noexcept { return watch_; }
    /// The time in front of a line of text, two blanks after it; empty without timestamps.
    [[nodiscard]] std::string stamp(const Palette& palette) const;

    /// Writes {"event":EVENT,"time":SECONDS,…}.
    /// @param members an object.
    void write_json(std::string_view event, const Json& members);
    /// @param members as they are between the braces of an object: for events that come quickly.
    void write_json_members(std::string_view event, std::string_view members);
    /// Writes the time and a text, which must be safe for a terminal.
    void write_text(std::string_view text);

    /// The line that `write_json_members` writes.
    [[nodiscard]] std::string json_event(std::string_view event, std::string_view members) const;

  private:
    void write(const std::string& line);

    StandardOutput& out_;
    EventFormat format_;
    Timestamps timestamps_;
    Palette palette_;
    Stopwatch watch_;
    std::mutex mutex_;
};

}  // namespace common
