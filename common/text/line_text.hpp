#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace common {

/// Text from elsewhere made safe for one line of a terminal, a file or a pipe, so that it can
/// neither begin a line of its own nor give orders to a terminal:
///
/// - `\n`, `\r`, `\t`; every other control character of ASCII below the blank as `\x1b`,
/// - every byte that is not part of valid UTF-8 as `\xff`,
/// - DEL, the control characters from U+0080 to U+009F, line and paragraph separators, and what
///   changes the direction of writing, as `\u202e`.
///
/// All else stays, a backslash too. So a text that has been made safe stays as it is, and JSON
/// stays JSON.
[[nodiscard]] std::string one_line(std::string_view text);
/// Appends the text so made safe: for lines that come quickly.
void append_one_line(std::string& line, std::string_view text);

/// Whether a text has only the characters of ASCII that can be seen, and blanks.
[[nodiscard]] bool is_printable_ascii(std::string_view text) noexcept;

/// A logged text without the line end that it may bring along.
[[nodiscard]] std::string_view without_line_end(std::string_view text);

/// The text, or of one with more than `longest` bytes its beginning, "…", and the last quarter.
/// Whole code points are left out.
[[nodiscard]] std::string shortened(std::string_view text, std::size_t longest);

/// An error quotes its cause, which may be mebibytes; in bytes.
inline constexpr std::size_t max_error_text = 1000;

/// 'TEXT' for a sentence, in which a name or value of more than 200 bytes is shortened.
[[nodiscard]] std::string in_quotes(std::string_view text);

}  // namespace common
