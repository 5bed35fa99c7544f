#include "tools/abi-check/row.hpp"

#include <cxxabi.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace abi_check {
namespace {

constexpr std::array results{"ok", "DIFFERS", "unknown"};
constexpr char separator = '\t';

const char* text_of(Row::Result result) {
    return results.at(static_cast<std::size_t>(result));
}

/// Without characters that would end a field or a line.
std::string field(std::string text) {
    std::ranges::replace_if(
        text, [](char c) { return c == separator || c == '\n'; }, ' ');
    return text;
}

void replace_all(std::string& text, std::string_view from, std::string_view to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at))
        text.replace(at, from.size(), to);
}

}  // namespace

std::string to_line(const Row& row) {
    return text_of(row.result) + (separator + field(row.kind)) + separator + field(row.subject) +
           separator + field(row.detail);
}

Row parse_row(std::string_view line) {
    std::array<std::string, 4> fields;
    for (std::string& text : fields) {
        const std::size_t end = std::min(line.find(separator), line.size());
        text = line.substr(0, end);
        line.remove_prefix(std::min(end + 1, line.size()));
    }
    const auto* const found = std::ranges::find(results, fields[0]);
    const auto result = found == results.end() ? Row::Result::differs
                                               : static_cast<Row::Result>(found - results.begin());
    return {result, fields[1], fields[2], fields[3]};
}

void print_table(const std::vector<Row>& rows, bool differences_only) {
    const auto is_ok = [](const Row& row) { return row.result == Row::Result::ok; };
    std::size_t kind_width = 0;
    std::size_t subject_width = 0;
    for (const Row& row : rows) {
        if (differences_only && is_ok(row))
            continue;
        kind_width = std::max(kind_width, row.kind.size());
        subject_width = std::max(subject_width, std::min<std::size_t>(row.subject.size(), 60));
    }
    for (const Row& row : rows) {
        if (differences_only && is_ok(row))
            continue;
        std::printf("%-7s  %-*s  %-*s  %s\n", text_of(row.result), static_cast<int>(kind_width),
                    row.kind.c_str(), static_cast<int>(subject_width), row.subject.c_str(),
                    row.detail.c_str());
    }
    const auto count = [&rows](Row::Result result) {
        return static_cast<std::size_t>(std::ranges::count(rows, result, &Row::result));
    };
    std::printf("%zu of %zu as expected, %zu differ, %zu unknown\n", count(Row::Result::ok),
                rows.size(), count(Row::Result::differs), count(Row::Result::unknown));
}

std::string readable_name(const std::string& symbol) {
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> text(
        abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &status), std::free);
    if (!text)
        return symbol;
    std::string name = text.get();
    replace_all(name,
                "std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >",
                "string");
    replace_all(name, "[abi:cxx11]", "");
    return name;
}

}  // namespace abi_check
