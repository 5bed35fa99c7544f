#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "common/text/diagnostics.hpp"
#include "fenwa/block_configuration.hpp"
#include "framework/shared/key_index.hpp"

namespace host {

using common::SourceLocation;

/// A value of the graph file with its location.
template <class T>
struct Located {
    T value;
    SourceLocation location;
};

/// How often a block may run: `burst` runs at once, and `rate` more in each second. 0 in either
/// switches the limit off.
struct RateLimit {
    std::uint64_t burst = 64;
    double rate = 200.0;  ///< runs a second, finite, 0 or more

    friend bool operator==(const RateLimit&, const RateLimit&) = default;
    [[nodiscard]] bool enabled() const noexcept { return burst > 0 && rate > 0.0; }
};

/// Help for an array among the settings of a block; the getters of blocks read no other one.
inline constexpr const char* array_help =
    "no block can read an array, except one of a single string";

/// One setting of a block, its key flattened to dots.
struct Setting {
    std::string key;
    SourceLocation location;
    /// Empty where the file holds a kind of value that no block takes.
    std::optional<Fenwa::BlockConfiguration::Value> value;

    /// Whether it is an array that no block can read.
    [[nodiscard]] bool is_unreadable_array() const {
        const auto* const list = value ? std::get_if<std::vector<std::string>>(&*value) : nullptr;
        return list != nullptr && list->size() != 1;
    }
};

/// One block of the graph.
struct BlockEntry {
    std::string name;
    SourceLocation location;  ///< of the block's name in its table header
    Located<std::string> type;
    std::vector<Setting> settings;  ///< each key once, in file order

    /// Adds a setting. @returns false if its key is there already.
    bool add(Setting setting);
    /// Replaces the value of a key, or adds the key.
    void set(const std::string& key, Fenwa::BlockConfiguration::Value value);
    /// The settings as the block gets them.
    [[nodiscard]] Fenwa::BlockConfiguration configuration() const;
    /// The setting of that key, or null.
    [[nodiscard]] const Setting* find(const std::string& key) const;
    /// The location of a key, or of the block if it has no such key.
    [[nodiscard]] SourceLocation location_of(const std::string& key) const;

  private:
    Fenwa::KeyIndex index_;  ///< of `settings`
};

/// "block 'NAME' (TYPE)", for a sentence.
[[nodiscard]] std::string display_name(const BlockEntry& entry);

/// One end of a connection, "BLOCK.PORT"; empty if it could not be read.
struct Endpoint {
    std::string block;
    std::string port;
    SourceLocation location;

    [[nodiscard]] std::string text() const { return block + '.' + port; }
};

/// Splits "BLOCK.PORT" at its last dot; empty if the text does not have that form.
[[nodiscard]] std::optional<Endpoint> parse_endpoint(const std::string& text,
                                                     SourceLocation location = {});

struct Connection {
    Endpoint from;
    Endpoint to;
};

/// A graph file: its form is correct, its names are not yet checked.
struct Graph {
    Located<std::string> bus_address{"system", {}};
    std::vector<Located<std::string>> bus_names;
    RateLimit rate_limit;  ///< of each block
    std::vector<Located<std::string>> plugins;
    std::vector<BlockEntry> blocks;  ///< in file order
    std::vector<Connection> connections;

    /// The block of that name, or null.
    [[nodiscard]] BlockEntry* find(const std::string& block);
    [[nodiscard]] const BlockEntry* find(const std::string& block) const;
};

/// Reads a graph file. Each mistake of form (syntax, unknown keys, values of a wrong kind, a block
/// without a type, a connection that is not "BLOCK.PORT") becomes a diagnostic; the rest of the
/// file is returned, so that its names can be checked too.
/// @returns nothing if the file cannot be parsed.
/// @throws common::Failure as `common::read_toml`.
[[nodiscard]] std::optional<Graph> read_graph(const std::string& path,
                                              common::Diagnostics& diagnostics);

/// Reads the value of a setting that somebody typed, as a graph file holds it: `5`, `true`,
/// `["a", "b"]`. Anything that is not a TOML value is taken as a string.
/// @throws common::Failure (usage) for a kind of value that no block takes.
[[nodiscard]] Fenwa::BlockConfiguration::Value setting_from_text(const std::string& key,
                                                                 const std::string& text);

}  // namespace host
