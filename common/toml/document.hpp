#pragma once

#include <toml++/toml.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/text/diagnostics.hpp"

namespace common {

/// A larger file is refused before it is parsed: a graph of a few thousand blocks stays below it.
inline constexpr std::size_t max_toml_bytes = std::size_t{1024} * 1024;
/// A file with a longer dotted key or header is refused before it is parsed: each part nests its
/// tree once more, whose destruction recurses. toml++ itself limits the nesting of values.
inline constexpr std::size_t max_toml_key_parts = 16;

/// Reads and parses a TOML file. A syntax error, a file that is too large or nested too deeply is
/// an error in `diagnostics` (whose source is set) and gives an empty result.
/// @throws Failure with `exit_code_of_unreadable` when the file cannot be read.
[[nodiscard]] std::optional<toml::table> read_toml(const std::string& path,
                                                   Diagnostics& diagnostics);

/// The same for a text at hand.
[[nodiscard]] std::optional<toml::table> parse_toml(const std::string& text,
                                                    Diagnostics& diagnostics);

/// The place of a parsed node, or a key, in its file.
[[nodiscard]] SourceLocation position(const toml::node& node);
[[nodiscard]] SourceLocation position(const toml::key& key);

/// "a string", "an integer", "a table" …: the kind of a node, for a sentence.
[[nodiscard]] std::string_view kind_of(const toml::node& node);

/// One entry of a table with the place of its key.
struct TomlEntry {
    std::string key;
    SourceLocation location;
    const toml::node* value;
};

/// The entries of a table in the order of the file (toml++ sorts by name).
[[nodiscard]] std::vector<TomlEntry> in_file_order(const toml::table& table);

/// Reports every key and every string that holds a zero byte, at its place: a C
/// string, such as a path or a name on the bus, would end there.
void report_zero_bytes(const toml::table& table, Diagnostics& diagnostics);

/// Reads the known keys of a table; each mistake becomes a diagnostic at its place. `what` names
/// the table in sentences, such as "[bus]" or "the step".
class TableReader {
  public:
    TableReader(const toml::table& table, std::string what, Diagnostics& diagnostics)
        : table_(table), what_(std::move(what)), diagnostics_(diagnostics) {}

    /// Each returns the value, or nothing where the key is absent or (with a diagnostic) holds
    /// something else. An integer serves as a number.
    std::optional<std::string> string(std::string_view key);
    std::optional<std::int64_t> integer(std::string_view key);
    std::optional<double> number(std::string_view key);
    std::optional<bool> boolean(std::string_view key);
    std::optional<std::vector<std::string>> strings(std::string_view key);
    const toml::table* table(std::string_view key);
    const toml::array* array(std::string_view key);
    /// The value as it is, for keys that take more than one kind.
    const toml::node* any(std::string_view key);

    /// Reports a missing required key, at the table's place.
    void missing(std::string_view key);

    /// The place of the key, or of the table if the key is absent.
    [[nodiscard]] SourceLocation location(std::string_view key) const;
    [[nodiscard]] SourceLocation location() const { return position(table_); }

    /// Reports every key that no call above has read, with the nearest one that was read.
    void report_unknown_keys();

  private:
    const toml::node* find(std::string_view key);
    void wrong_kind(std::string_view key, const toml::node& found, std::string_view wanted);

    const toml::table& table_;
    std::string what_;
    Diagnostics& diagnostics_;
    std::vector<std::string> asked_;
};

}  // namespace common
