#include "host/graph/reader.hpp"

#include <cmath>
#include <set>

#include "common/bus/bus.hpp"
#include "common/toml/document.hpp"

namespace host {
namespace {

using common::Diagnostics;
using common::kind_of;
using common::TableReader;
using common::TomlEntry;

std::vector<PlacedName> read_names(const toml::array* list, const std::string& what,
                                   Diagnostics& diagnostics) {
    std::vector<PlacedName> names;
    std::set<std::string> known;
    if (list == nullptr)
        return names;
    for (const toml::node& element : *list) {
        const auto* name = element.as_string();
        if (name == nullptr)
            diagnostics.error(
                common::position(element),
                "each of " + what + " must be a string, not " + std::string(kind_of(element)));
        else if (!known.insert(name->get()).second)
            diagnostics.error(common::position(element),
                              "'" + name->get() + "' is listed twice in " + what);
        else
            names.push_back({name->get(), common::position(element)});
    }
    return names;
}

void check_bus_names(const std::vector<PlacedName>& names, Diagnostics& diagnostics) {
    for (const PlacedName& name : names) {
        if (!common::is_ownable_name(name.text))
            diagnostics.error(name.location,
                              "'" + name.text + "' is not a valid well-known bus name");
    }
}

RateLimit read_pace(const toml::table& table, Diagnostics& diagnostics) {
    TableReader reader(table, "[host]", diagnostics);
    RateLimit rate_limit;
    if (const auto burst = reader.integer("run_burst")) {
        if (*burst < 0)
            diagnostics.error(
                reader.location("run_burst"),
                "'run_burst' of [host] must be 0 or more, not " + std::to_string(*burst));
        else
            rate_limit.burst = static_cast<std::uint64_t>(*burst);
    }
    if (const auto rate = reader.number("run_rate")) {
        if (!std::isfinite(*rate) || *rate < 0.0)
            diagnostics.error(reader.location("run_rate"),
                              "'run_rate' of [host] must be a finite number of 0 or more");
        else
            rate_limit.rate = *rate;
    }
    reader.report_unknown_keys();
    return rate_limit;
}

}  // namespace

std::optional<Fenwa::BlockConfiguration::Value> read_setting(const std::string& key,
                                                             const toml::node& node,
                                                             Diagnostics& diagnostics) {
    if (const auto* boolean = node.as_boolean())
        return boolean->get();
    if (const auto* integer = node.as_integer())
        return integer->get();
    if (const auto* number = node.as_floating_point())
        return number->get();
    if (const auto* text = node.as_string())
        return text->get();
    if (const toml::array* list = node.as_array()) {
        std::vector<std::string> strings;
        for (const toml::node& element : *list) {
            const auto* text = element.as_string();
            if (text == nullptr) {
                diagnostics.error(common::position(element), "the array '" + key +
                                                                 "' must hold strings only, not " +
                                                                 std::string(kind_of(element)));
                return std::nullopt;
            }
            strings.push_back(text->get());
        }
        return strings;
    }
    diagnostics.error(common::position(node),
                      "'" + key +
                          "' must be a boolean, an integer, a float, a string or an "
                          "array of strings, not " +
                          std::string(kind_of(node)));
    return std::nullopt;
}

namespace {

/// With all its tables: each key in a table holds the table's name, which may be half the file.
constexpr std::size_t longest_key = 1024;

/// Flattens a table of settings to dotted keys.
void read_settings(const toml::table& table, const std::string& prefix, BlockEntry& block,
                   Diagnostics& diagnostics) {
    for (const TomlEntry& entry : common::in_file_order(table)) {
        if (prefix.empty() && entry.key == "type")
            continue;
        const std::string key = prefix + entry.key;
        if (key.size() > longest_key) {
            diagnostics.error(entry.location, "the key is longer than " +
                                                  std::to_string(longest_key) +
                                                  " bytes, its tables included");
            continue;
        }
        if (const toml::table* inner = entry.value->as_table()) {
            read_settings(*inner, key + '.', block, diagnostics);
            continue;
        }
        if (block.find(key) != nullptr)
            diagnostics.error(entry.location, "'" + key + "' is set twice");
        else
            block.add({key, entry.location, read_setting(key, *entry.value, diagnostics)});
    }
}

void read_blocks(const toml::table* blocks, Graph& graph, Diagnostics& diagnostics) {
    if (blocks == nullptr)
        return;
    for (const TomlEntry& entry : common::in_file_order(*blocks)) {
        const toml::table* table = entry.value->as_table();
        if (table == nullptr) {
            diagnostics.error(entry.location, "the block '" + entry.key +
                                                  "' must be a table, not " +
                                                  std::string(kind_of(*entry.value)));
            continue;
        }
        BlockEntry block;
        block.name = entry.key;
        block.location = entry.location;
        const toml::node* type = table->get("type");
        if (type == nullptr)
            diagnostics.error(entry.location, "the block '" + entry.key + "' has no 'type'");
        else if (const auto* text = type->as_string())
            block.type = {text->get(), common::position(*type)};
        else
            diagnostics.error(common::position(*type), "'type' of the block '" + entry.key +
                                                           "' must be a string, not " +
                                                           std::string(kind_of(*type)));
        read_settings(*table, "", block, diagnostics);
        graph.blocks.push_back(std::move(block));
    }
}

std::optional<Endpoint> read_endpoint(TableReader& reader, std::string_view key,
                                      Diagnostics& diagnostics) {
    const toml::node* node = reader.any(key);
    if (node == nullptr) {
        reader.missing(key);
        return std::nullopt;
    }
    const SourceLocation location = common::position(*node);
    const auto* text = node->as_string();
    if (text == nullptr) {
        diagnostics.error(location, "'" + std::string(key) +
                                        "' of a connection must be a string, not " +
                                        std::string(kind_of(*node)));
        return std::nullopt;
    }
    std::optional<Endpoint> end = parse_endpoint(text->get(), location);
    if (!end)
        diagnostics.error(location, "'" + text->get() + "' is not of the form BLOCK.PORT");
    return end;
}

void read_connections(const toml::array* connections, Graph& graph, Diagnostics& diagnostics) {
    if (connections == nullptr)
        return;
    for (const toml::node& element : *connections) {
        const toml::table* table = element.as_table();
        if (table == nullptr) {
            diagnostics.error(common::position(element),
                              "a connection must be a table with 'from' and 'to', not " +
                                  std::string(kind_of(element)));
            continue;
        }
        TableReader reader(*table, "the connection", diagnostics);
        const auto from = read_endpoint(reader, "from", diagnostics);
        const auto to = read_endpoint(reader, "to", diagnostics);
        reader.report_unknown_keys();
        // An end that cannot be read stays empty; the other one is checked all the same.
        graph.connections.push_back({from.value_or(Endpoint{}), to.value_or(Endpoint{})});
    }
}

}  // namespace

std::optional<Graph> read_graph(const std::string& path, Diagnostics& diagnostics) {
    const std::optional<toml::table> root = common::read_toml(path, diagnostics);
    if (!root)
        return std::nullopt;
    common::report_zero_bytes(*root, diagnostics);
    Graph graph;
    TableReader reader(*root, "the graph", diagnostics);
    graph.plugins = read_names(reader.array("plugins"), "'plugins'", diagnostics);
    if (const toml::table* bus = reader.table("bus")) {
        TableReader bus_reader(*bus, "[bus]", diagnostics);
        if (const auto address = bus_reader.string("address"))
            graph.bus_address = {*address, bus_reader.location("address")};
        graph.bus_names = read_names(bus_reader.array("names"), "'names' of [bus]", diagnostics);
        check_bus_names(graph.bus_names, diagnostics);
        bus_reader.report_unknown_keys();
    }
    if (const toml::table* host = reader.table("host"))
        graph.rate_limit = read_pace(*host, diagnostics);
    read_blocks(reader.table("blocks"), graph, diagnostics);
    read_connections(reader.array("connections"), graph, diagnostics);
    reader.report_unknown_keys();
    if (graph.blocks.empty() && diagnostics.errors() == 0)
        diagnostics.error({}, "the graph has no blocks");
    return graph;
}

}  // namespace host
