#pragma once

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "common/text/diagnostics.hpp"
#include "fenwa/block_configuration.hpp"
#include "host/graph/rate_limit.hpp"

namespace host {

using common::SourceLocation;

/// A name together with the place where it stands in the graph file.
struct PlacedName {
    std::string text;
    SourceLocation location;
};

/// One setting of a block, its key flattened to dots.
struct Setting {
    std::string key;
    SourceLocation location;
    /// None where the file has a kind of value that no block can be given.
    std::optional<Fenwa::BlockConfiguration::Value> value;
};

/// One block of the graph.
struct BlockEntry {
    std::string name;
    SourceLocation location;  ///< of the block's name in its table header
    PlacedName type;
    std::vector<Setting> settings;  ///< each key once, in the order of the file

    /// Adds a setting. @returns false when its key is there already.
    bool add(Setting setting);
    /// Sets a value, in the place of the key where it is there already.
    void set(const std::string& key, Fenwa::BlockConfiguration::Value value);
    /// The settings as the block gets them.
    [[nodiscard]] Fenwa::BlockConfiguration configuration() const;
    /// The setting of that key, or null.
    [[nodiscard]] const Setting* find(const std::string& key) const;
    /// Where a key stands, or the block's own place where it does not.
    [[nodiscard]] SourceLocation where_is(const std::string& key) const;

  private:
    std::unordered_map<std::string, std::size_t> places_;  ///< of the keys in `settings`
};

/// "block 'NAME' (TYPE)", for a sentence.
[[nodiscard]] std::string describe(const BlockEntry& entry);

/// One end of a connection, "BLOCK.PORT"; empty where it could not be read.
struct Endpoint {
    std::string block;
    std::string port;
    SourceLocation location;

    [[nodiscard]] std::string text() const { return block + '.' + port; }
};

/// Takes "BLOCK.PORT" apart; nothing where the text is not of that form. Block names may contain
/// dots, port names do not.
[[nodiscard]] std::optional<Endpoint> parse_endpoint(const std::string& text,
                                                     SourceLocation location = {});

struct Connection {
    Endpoint from;
    Endpoint to;
};

/// A graph file as it was read: its form is right, its names are not yet checked.
struct Graph {
    PlacedName bus_address{"system", {}};
    std::vector<PlacedName> bus_names;
    RateLimit rate_limit;  ///< of each block
    std::vector<PlacedName> plugins;
    std::vector<BlockEntry> blocks;  ///< in the order of the file
    std::vector<Connection> connections;

    /// The block of that name, or null.
    [[nodiscard]] BlockEntry* find(const std::string& block);
    [[nodiscard]] const BlockEntry* find(const std::string& block) const;
};

}  // namespace host
