#include "common/toml/document.hpp"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <utility>

#include "common/process/exit_code.hpp"
#include "common/text/utf8.hpp"

namespace common {
namespace {

[[noreturn]] void unreadable(const std::string& name, int error) {
    throw Failure(exit_code_of_unreadable(error),
                  fmt::format("cannot read '{}': {}", name, std::strerror(error)));
}

/// The file's text, cut soon after more than is allowed: enough to know that it is too large.
std::string read_text(const std::string& path, const std::string& name) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0)
        unreadable(name, errno);
    if (S_ISDIR(status.st_mode))
        unreadable(name, EISDIR);
    std::ifstream file(path, std::ios::binary);
    if (!file)
        unreadable(name, errno);
    std::string text;
    std::array<char, 16384> piece;
    while (text.size() <= max_toml_bytes && file.good()) {
        file.read(piece.data(), piece.size());
        text.append(piece.data(), static_cast<std::size_t>(file.gcount()));
    }
    if (file.bad())
        unreadable(name, errno);
    return text;
}

SourceLocation to_position(const toml::source_region& region) {
    return {static_cast<std::uint32_t>(region.begin.line),
            static_cast<std::uint32_t>(region.begin.column)};
}

bool is_separator(char c) {
    return std::string_view("=,[]{}#\r\n.'\"").find(c) != std::string_view::npos;
}

/// Whether a line has dots enough for a key with too many parts: told quickly, and hardly ever so.
bool may_have_long_key(std::string_view text) {
    std::size_t dots = 0;
    return std::any_of(text.begin(), text.end(), [&dots](char c) {
        dots = c == '\n' ? 0 : dots + (c == '.' ? 1 : 0);
        return dots >= max_toml_key_parts;
    });
}

/// Where a dotted key has too many parts, line 0 for nowhere. A quote may begin or end a string, so
/// both are followed: no key is overlooked, and dotted words in a string may count as a key.
SourceLocation find_long_key(std::string_view text) {
    if (!may_have_long_key(text))
        return {};
    std::size_t parts = 0;              // of the key so far
    std::array<std::size_t, 2> open{};  // parts before the last quote of each kind
    std::size_t backslashes = 0;
    SourceLocation location{1, 0};
    char before = '\n';  // the last character that is not blank
    bool blank = false;  // since then
    if (text.starts_with("\xEF\xBB\xBF"))
        text.remove_prefix(3);  // a byte-order mark has no column
    for (const char c : text) {
        location.column += starts_code_point(c) ? 1 : 0;
        const bool follows_dot = before == '.';
        const bool is_escaped = backslashes % 2 != 0;
        backslashes = c == '\\' ? backslashes + 1 : 0;
        if (c == ' ' || c == '\t') {
            blank = true;
            continue;
        }
        if (c == '\'' || (c == '"' && !is_escaped))
            parts = std::exchange(open[c == '"' ? 1 : 0], follows_dot ? parts : 0) + 1;
        else if (c != '.' && is_separator(c))
            parts = 0;
        else if (c != '.' && (blank || is_separator(before)))
            parts = follows_dot ? parts + 1 : 1;
        if (parts > max_toml_key_parts)
            return location;
        if (c == '\n') {
            open = {};
            ++location.line;
            location.column = 0;
        }
        before = c;
        blank = false;
    }
    return {};
}

/// A node as a table, for an array of tables its last one; null for none.
const toml::table* table_of(const toml::node* node) {
    if (node == nullptr)
        return nullptr;
    if (const toml::array* array = node->as_array())
        node = array->empty() ? nullptr : array->get(array->size() - 1);
    return node == nullptr ? nullptr : node->as_table();
}

/// The first definition of a table whose header is at `location`; line 0 for none, or for another
/// place. The parser itself names only the second definition.
SourceLocation first_definition(const std::string& text, SourceLocation location) {
    std::size_t begin = 0;
    for (std::uint32_t line = 1; line < location.line; ++line)
        begin = text.find('\n', begin) + 1;
    std::string header = text.substr(begin, text.find('\n', begin) - begin);
    if (header.ends_with('\r'))
        header.pop_back();
    if (header.find_first_not_of(" \t") != header.find('['))
        return {};
    try {
        const toml::table path = toml::parse(header);
        const toml::table before = toml::parse(std::string_view(text).substr(0, begin));
        const toml::node* found = &before;
        const toml::table* step = &path;
        while (step != nullptr && !step->empty()) {
            const auto [key, next] = *step->begin();
            const toml::table* const table = table_of(found);
            if (table == nullptr)  // another kind of value, which cannot become a table
                break;
            found = table->get(key);
            if (found == nullptr)
                return {};
            step = table_of(&next);
        }
        return to_position(found->source());
    } catch (const toml::parse_error&) {
        return {};
    }
}

}  // namespace

std::optional<toml::table> read_toml(const std::string& path, Diagnostics& diagnostics) {
    const std::string text = read_text(path, diagnostics.file());
    if (text.size() > max_toml_bytes) {
        diagnostics.error(
            {}, "the file is larger than " + std::to_string(max_toml_bytes) + " bytes (1 MiB)");
        return std::nullopt;
    }
    return parse_toml(text, diagnostics);
}

std::optional<toml::table> parse_toml(const std::string& text, Diagnostics& diagnostics) {
    diagnostics.set_source(text);
    if (const SourceLocation location = find_long_key(text); location.line != 0) {
        diagnostics.error(location,
                          fmt::format("a key has more than {} parts", max_toml_key_parts));
        return std::nullopt;
    }
    try {
        return toml::parse(std::string_view(text));
    } catch (const toml::parse_error& error) {
        const SourceLocation location = to_position(error.source());
        const SourceLocation first = first_definition(text, location);
        diagnostics.error(
            location, std::string(error.description()),
            first.line == 0 ? "" : "the first one is at " + diagnostics.locate(first));
        return std::nullopt;
    }
}

SourceLocation position(const toml::node& node) {
    return to_position(node.source());
}

SourceLocation position(const toml::key& key) {
    return to_position(key.source());
}

std::string_view kind_of(const toml::node& node) {
    switch (node.type()) {
        case toml::node_type::table:
            return "a table";
        case toml::node_type::array:
            return "an array";
        case toml::node_type::string:
            return "a string";
        case toml::node_type::integer:
            return "an integer";
        case toml::node_type::floating_point:
            return "a float";
        case toml::node_type::boolean:
            return "a boolean";
        case toml::node_type::date:
            return "a date";
        case toml::node_type::time:
            return "a time";
        case toml::node_type::date_time:
            return "a date-time";
        case toml::node_type::none:
            break;
    }
    return "nothing";
}

std::vector<TomlEntry> in_file_order(const toml::table& table) {
    std::vector<TomlEntry> entries;
    for (const auto& [key, value] : table)
        entries.push_back({std::string(key.str()), position(key), &value});
    std::stable_sort(entries.begin(), entries.end(), [](const TomlEntry& a, const TomlEntry& b) {
        return a.location < b.location;
    });
    return entries;
}

namespace {

void report_zero_bytes_in(const toml::node& node, Diagnostics& diagnostics) {
    if (const toml::table* table = node.as_table()) {
        report_zero_bytes(*table, diagnostics);
    } else if (const toml::array* array = node.as_array()) {
        for (const toml::node& element : *array)
            report_zero_bytes_in(element, diagnostics);
    } else if (const auto* text = node.as_string()) {
        if (text->get().find('\0') != std::string::npos)
            diagnostics.error(position(node), "the string holds a zero byte");
    }
}

}  // namespace

void report_zero_bytes(const toml::table& table, Diagnostics& diagnostics) {
    for (const auto& [key, value] : table) {
        if (key.str().find('\0') != std::string_view::npos)
            diagnostics.error(position(key), "the key holds a zero byte");
        report_zero_bytes_in(value, diagnostics);
    }
}

const toml::node* TableReader::find(std::string_view key) {
    asked_.emplace_back(key);
    return table_.get(key);
}

void TableReader::wrong_kind(std::string_view key, const toml::node& found,
                             std::string_view wanted) {
    diagnostics_.error(position(found), fmt::format("'{}' of {} must be {}, not {}", key, what_,
                                                    wanted, kind_of(found)));
}

std::optional<std::string> TableReader::string(std::string_view key) {
    const toml::node* node = find(key);
    if (node == nullptr)
        return std::nullopt;
    if (const auto* value = node->as_string())
        return value->get();
    wrong_kind(key, *node, "a string");
    return std::nullopt;
}

std::optional<std::int64_t> TableReader::integer(std::string_view key) {
    const toml::node* node = find(key);
    if (node == nullptr)
        return std::nullopt;
    if (const auto* value = node->as_integer())
        return value->get();
    wrong_kind(key, *node, "an integer");
    return std::nullopt;
}

std::optional<double> TableReader::number(std::string_view key) {
    const toml::node* node = find(key);
    if (node == nullptr)
        return std::nullopt;
    if (const auto* value = node->as_floating_point())
        return value->get();
    if (const auto* value = node->as_integer())
        return static_cast<double>(value->get());
    wrong_kind(key, *node, "a number");
    return std::nullopt;
}

std::optional<bool> TableReader::boolean(std::string_view key) {
    const toml::node* node = find(key);
    if (node == nullptr)
        return std::nullopt;
    if (const auto* value = node->as_boolean())
        return value->get();
    wrong_kind(key, *node, "a boolean");
    return std::nullopt;
}

std::optional<std::vector<std::string>> TableReader::strings(std::string_view key) {
    const toml::array* list = array(key);
    if (list == nullptr)
        return std::nullopt;
    std::vector<std::string> values;
    for (const toml::node& element : *list) {
        if (const auto* value = element.as_string())
            values.push_back(value->get());
        else
            wrong_kind(key, element, "an array of strings");
    }
    return values;
}

const toml::table* TableReader::table(std::string_view key) {
    const toml::node* node = find(key);
    if (node == nullptr || node->is_table())
        return node == nullptr ? nullptr : node->as_table();
    wrong_kind(key, *node, "a table");
    return nullptr;
}

const toml::array* TableReader::array(std::string_view key) {
    const toml::node* node = find(key);
    if (node == nullptr || node->is_array())
        return node == nullptr ? nullptr : node->as_array();
    wrong_kind(key, *node, "an array");
    return nullptr;
}

const toml::node* TableReader::any(std::string_view key) {
    return find(key);
}

void TableReader::missing(std::string_view key) {
    diagnostics_.error(location(), fmt::format("{} has no '{}'", what_, key));
}

SourceLocation TableReader::location(std::string_view key) const {
    const toml::node* node = table_.get(key);
    return position(node == nullptr ? static_cast<const toml::node&>(table_) : *node);
}

void TableReader::report_unknown_keys() {
    for (const TomlEntry& entry : in_file_order(table_)) {
        if (std::find(asked_.begin(), asked_.end(), entry.key) == asked_.end())
            diagnostics_.error(entry.location,
                               fmt::format("unknown key '{}' in {}", entry.key, what_),
                               diagnostics_.did_you_mean(entry.key, asked_));
    }
}

}  // namespace common
