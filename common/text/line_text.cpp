#include "common/text/line_text.hpp"

#include <algorithm>
#include <array>

#include "common/text/utf8.hpp"

namespace common {
namespace {

constexpr std::string_view digits = "0123456789abcdef";
constexpr std::size_t longest_quoted = 200;

/// The first code point of a text, with the number of its bytes; 0 where these are not UTF-8.
struct CodePoint {
    char32_t value = 0;
    std::size_t bytes = 0;
};

CodePoint first_code_point(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text.front());
    if (lead < 0x80U)
        return {lead, 1};
    const std::size_t bytes = lead >= 0xF0U ? 4 : lead >= 0xE0U ? 3 : 2;
    if (lead < 0xC2U || lead > 0xF4U || text.size() < bytes)
        return {};
    char32_t value = lead & (0x7FU >> bytes);
    for (const char c : text.substr(1, bytes - 1)) {
        if (starts_code_point(c))
            return {};
        value = (value << 6U) | (static_cast<unsigned char>(c) & 0x3FU);
    }
    // Longer than it has to be, half of a pair of UTF-16, or beyond the last one.
    constexpr std::array<char32_t, 5> least = {0, 0, 0x80, 0x800, 0x10000};
    const bool is_valid =
        value >= least[bytes] && (value < 0xD800 || value > 0xDFFF) && value <= 0x10FFFF;
    return is_valid ? CodePoint{value, bytes} : CodePoint{};
}

bool is_unsafe(char32_t value) {
    struct Range {
        char32_t first, last;
    };
    constexpr Range ranges[] = {
        {0x7F, 0x9F}, {0x61C, 0x61C}, {0x200E, 0x200F}, {0x2028, 0x202E}, {0x2066, 0x2069}};
    return std::any_of(std::begin(ranges), std::end(ranges), [value](const Range& range) {
        return value >= range.first && value <= range.last;
    });
}

void append_hex(std::string& line, const char* prefix, char32_t value, unsigned width) {
    line += prefix;
    while (width-- > 0)
        line += digits[(value >> (4U * width)) & 0xFU];
}

void append_control(std::string& line, char32_t value) {
    if (value == '\n')
        line += "\\n";
    else if (value == '\r')
        line += "\\r";
    else if (value == '\t')
        line += "\\t";
    else
        append_hex(line, "\\x", value, 2);
}

}  // namespace

bool is_printable_ascii(std::string_view text) noexcept {
    // Without a branch, so that the compiler can test many characters at once.
    unsigned char others = 0;
    for (const char c : text)
        others |= static_cast<unsigned char>(c - ' ') > '~' - ' ' ? 1U : 0U;
    return others == 0;
}

std::string one_line(std::string_view text) {
    std::string line;
    append_one_line(line, text);
    return line;
}

void append_one_line(std::string& line, std::string_view text) {
    if (is_printable_ascii(text)) {
        line += text;
        return;
    }
    line.reserve(line.size() + text.size() + 16);
    while (!text.empty()) {
        const CodePoint next = first_code_point(text);
        const std::size_t bytes = std::max<std::size_t>(next.bytes, 1);
        if (next.bytes == 0)
            append_hex(line, "\\x", static_cast<unsigned char>(text.front()), 2);
        else if (next.value < ' ')
            append_control(line, next.value);
        else if (is_unsafe(next.value))
            append_hex(line, "\\u", next.value, 4);
        else
            line.append(text.substr(0, bytes));
        text.remove_prefix(bytes);
    }
}

std::string_view without_line_end(std::string_view text) {
    if (text.ends_with('\n'))
        text.remove_suffix(1);
    return text;
}

std::string shortened(std::string_view text, std::size_t longest) {
    if (text.size() <= longest)
        return std::string(text);
    std::size_t begin = longest - longest / 4;
    while (begin > 0 && !starts_code_point(text[begin]))
        --begin;
    std::size_t end = text.size() - longest / 4;
    while (end < text.size() && !starts_code_point(text[end]))
        ++end;
    return std::string(text.substr(0, begin)) + "…" + std::string(text.substr(end));
}

std::string in_quotes(std::string_view text) {
    return "'" + shortened(text, longest_quoted) + "'";
}

}  // namespace common
