#pragma once

#include <concepts>
#include <cstdint>
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
    /// The time in front of a line of text, with two blanks after it; empty without timestamps.
    [[nodiscard]] std::string stamp(const Palette& palette) const;

    /// Writes {"event":EVENT,"time":SECONDS,…}.
    /// @param members an object.
    void write_json(std::string_view event, const Json& members);
    /// The same for events that come quickly.
    /// @param append_members called with the line, a std::string, to which it appends what stands
    ///        between the braces of the object, and something.
    template <std::invocable<std::string&> AppendMembers>
    void write_json(std::string_view event, AppendMembers&& append_members) {
        const std::lock_guard lock(mutex_);
        begin_json(line_, event);
        line_ += ',';
        append_members(line_);
        line_ += "}\n";
        out_.write(line_);
    }
    /// Writes the time and a text.
    /// @param append called with the line, a std::string, to which it appends what must be safe for
    ///        a terminal.
    template <std::invocable<std::string&> Append>
    void write_text(Append&& append) {
        const std::lock_guard lock(mutex_);
        begin_text();
        append(line_);
        line_ += '\n';
        out_.write(line_);
    }

    /// The line of an event with these members.
    [[nodiscard]] std::string json_event(std::string_view event, const Json& members) const;

  private:
    /// Makes `line` the beginning of an event.
    void begin_json(std::string& line, std::string_view event) const;
    /// Makes `line_` the time in front of a text.
    void begin_text();
    /// The time since the start, rounded.
    [[nodiscard]] std::int64_t milliseconds() const;
    [[nodiscard]] static std::string relative_stamp(const Palette& palette,
                                                    std::int64_t milliseconds);

    StandardOutput& out_;
    EventFormat format_;
    Timestamps timestamps_;
    Palette palette_;
    Stopwatch watch_;
    std::mutex mutex_;
    std::string line_;          ///< keeps its memory from line to line
    std::string stamp_;         ///< of the last line of text with a relative time; or empty
    std::int64_t stamped_ = 0;  ///< that time in milliseconds
};

}  // namespace common
